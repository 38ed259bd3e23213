#pragma once

#include "support/MissingTool.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <string_view>

// Under CI every test must run: a missing tool is a failure there (see MissingTool.h). One test
// alone may skip, for a reason no package can fix: a desktop portal on a machine without a GPU.
namespace CiSkipPolicy {

inline constexpr std::string_view allowedSuite = "SwayPortalTest";
inline constexpr std::string_view allowedReason =
    "xdg-desktop-portal-wlr cannot start a screen cast here: without a DRM render node wlroots "
    "offers no DMA-BUF format, and this portal version demands one";

// Counts the tests that skipped under CI for any other reason, naming each on standard error.
class Listener final : public ::testing::EmptyTestEventListener {
public:
    void OnTestPartResult(const ::testing::TestPartResult& result) override {
        if (result.skipped())
            m_reason = result.message() ? result.message() : "";
    }
    void OnTestStart(const ::testing::TestInfo&) override { m_reason.clear(); }
    void OnTestEnd(const ::testing::TestInfo& test) override {
        if (!runningUnderCI() || !test.result()->Skipped())
            return;
        if (test.test_suite_name() == allowedSuite &&
            m_reason.find(allowedReason) != std::string::npos)
            return;
        ++m_disallowed;
        std::fprintf(stderr, "❌ %s.%s skipped under CI: %s\n", test.test_suite_name(), test.name(),
                     m_reason.c_str());
    }
    int disallowedSkips() const { return m_disallowed; }

private:
    std::string m_reason;
    int m_disallowed = 0;
};

} // namespace CiSkipPolicy
