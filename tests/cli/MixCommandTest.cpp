#include "cli/MixCommand.h"

#include "cli/CommandOutcome.h"
#include "media/AudioFileEncoder.h"
#include "media/AudioPackageInfo.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <vector>

namespace {

// A package with one second of system-audio tone.
std::filesystem::path makePackage(const QTemporaryDir& folder) {
    const std::filesystem::path package = folder.filePath("Talk.vxa").toStdString();
    std::filesystem::create_directory(package);
    std::ofstream(package / "info.json") << AudioPackageInfo{"m4a", "aac", false, 1, 1}.toJson();
    std::string error;
    auto encoder = AudioFileEncoder::create(package / "sys.m4a", AudioFileEncoder::Codec::aac,
                                            48000, 2, error);
    EXPECT_TRUE(encoder) << error;
    std::vector<float> tone(48000);
    for (size_t i = 0; i < tone.size(); ++i)
        tone[i] = 0.3f * float(std::sin(2 * M_PI * 440.0 * double(i) / 48000));
    const float* planes[] = {tone.data(), tone.data()};
    EXPECT_TRUE(encoder && encoder->write(planes, int(tone.size())) && encoder->finish());
    return package;
}

} // namespace

// The mixed file is printed and made where --output says; bad volumes and a damaged
// "info.json" are bad input (status 2) with the value or the file named.
TEST(MixCommandTest, MixesToTheNamedFileAndRejectsBadInput) {
    QTemporaryDir folder;
    const auto package = QString::fromStdString(makePackage(folder).string());
    const QString output = folder.filePath("mix.m4a");

    const auto mixed = runCommandEntry(
        runMix, {package, "--sys-volume", "0.5", "--normalize", "--output", output});
    EXPECT_EQ(mixed.status, 0) << mixed.err;
    EXPECT_EQ(mixed.out, output.toStdString() + "\n");
    EXPECT_GT(std::filesystem::file_size(output.toStdString()), 1000u);

    const auto badVolume = runCommandEntry(runMix, {package, "--mic-volume", "loud"});
    EXPECT_EQ(badVolume.status, 2);
    EXPECT_NE(badVolume.err.find("\"loud\""), std::string::npos) << badVolume.err;

    std::ofstream(package.toStdString() + "/info.json") << "{\"sysVol\": ";
    const auto damaged = runCommandEntry(runMix, {package});
    EXPECT_EQ(damaged.status, 2);
    EXPECT_NE(damaged.err.find(package.toStdString() + "/info.json"), std::string::npos)
        << damaged.err;
}
