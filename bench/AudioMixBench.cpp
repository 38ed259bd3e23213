// Mix-down speed of an audio package. Generates a package of TQ_BENCH_MINUTES minutes (10 unless
// given; 60 for the quoted figure) with a system-audio tone and a noisy microphone, then, in the
// same run, measures on one thread the CPU time of: decoding both sources alone (the baseline:
// what any mix-down must spend), the mix-down to m4a, and the normalised mix-down (two passes).
// Reports each as times faster than real time and as a ratio to the baseline.

#include "media/AudioFileEncoder.h"
#include "media/AudioPackageMixer.h"
#include "media/export/AudioTrackReader.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>
#include <vector>

namespace {

constexpr int rate = 48000;

double cpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

template <typename Work>
double measure(Work&& work) {
    const double start = cpuSeconds();
    work();
    return cpuSeconds() - start;
}

// A tone with a slow swell, or noise, a minute's block at a time.
bool writeSource(const std::filesystem::path& path, double seconds, bool noise) {
    std::string error;
    auto encoder = AudioFileEncoder::create(path, AudioFileEncoder::Codec::aac, rate, 2, error);
    if (!encoder) {
        fmt::print(stderr, "❌ {}\n", error);
        return false;
    }
    std::mt19937 random(7);
    std::normal_distribution<float> gaussian(0.0f, 0.1f);
    std::vector<float> samples(size_t(rate) * 60);
    const int64_t total = int64_t(seconds * rate);
    for (int64_t done = 0; done < total;) {
        const int count = int(std::min<int64_t>(int64_t(samples.size()), total - done));
        for (int i = 0; i < count; ++i) {
            const double t = double(done + i) / rate;
            samples[size_t(i)] =
                noise ? gaussian(random)
                      : float(0.3 * (1.0 + 0.5 * std::sin(t)) * std::sin(2 * M_PI * 440 * t));
        }
        const float* planes[] = {samples.data(), samples.data()};
        if (!encoder->write(planes, count))
            return false;
        done += count;
    }
    return encoder->finish();
}

void decodeAll(const std::filesystem::path& path) {
    std::string error;
    auto reader = AudioTrackReader::open(path, {rate, 2}, error);
    while (reader && !reader->nextBuffer().isNull()) {
    }
}

} // namespace

int main() {
    const char* given = std::getenv("TQ_BENCH_MINUTES");
    const double minutes = given && std::atof(given) > 0 ? std::atof(given) : 10.0;
    const double seconds = minutes * 60;
    const auto folder = std::filesystem::temp_directory_path() / "tavelquiston-mix-bench";
    std::filesystem::remove_all(folder);
    const auto package = folder / "Bench.vxa";
    std::filesystem::create_directories(package);
    std::ofstream(package / "info.json")
        << AudioPackageInfo{"m4a", "aac", false, 0.8f, 1.2f}.toJson();

    fmt::print("Generating a {:.0f}-minute package...\n", minutes);
    if (!writeSource(package / "sys.m4a", seconds, false) ||
        !writeSource(package / "mic.m4a", seconds, true))
        return 1;

    const double decode = measure([&] {
        decodeAll(package / "sys.m4a");
        decodeAll(package / "mic.m4a");
    });
    const AudioPackageMixer mixer(package);
    AudioMixOptions options;
    options.output = folder / "mix.m4a";
    double mixedSeconds = 0;
    const double mix = measure([&] { mixedSeconds = mixer.mix(options).seconds; });
    options.normalize = true;
    const double normalized = measure([&] { mixer.mix(options); });

    fmt::print("Package: {:.1f} s of audio, two AAC sources\n", mixedSeconds);
    auto report = [&](const char* label, double cpu) {
        fmt::print("{}: {:.2f} s CPU = {:.0f} x real time = {:.2f} x decoding alone ({:.2f} s)\n",
                   label, cpu, seconds / cpu, cpu / decode, decode);
    };
    report("Decoding both sources (baseline)", decode);
    report("Mix-down to m4a", mix);
    report("Normalised mix-down to m4a", normalized);
    std::filesystem::remove_all(folder);
    return 0;
}
