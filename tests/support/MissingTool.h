#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <string_view>

// Whether the tests run on a CI machine (CI=true, as CI services set it), where every tool the
// tests need is installed by scripts/install-deps.sh.
inline bool runningUnderCI() {
    const char* value = std::getenv("CI");
    const std::string_view ci = value ? value : "";
    return ci == "true" || ci == "TRUE" || ci == "1";
}

// Ends the current test when a tool it needs is missing (`missing` names it; empty when all are
// there): a skip on a developer's machine, a failure under CI, so that a green CI run always means
// the integration tests ran.
#define REQUIRE_NOTHING_MISSING(missing)                                                           \
    do {                                                                                           \
        const std::string tqMissingTool = (missing);                                               \
        if (!tqMissingTool.empty()) {                                                              \
            if (runningUnderCI())                                                                  \
                GTEST_FAIL() << "'" << tqMissingTool << "' is not installed, and CI must run "     \
                             << "every test: add it to scripts/install-deps.sh";                   \
            GTEST_SKIP() << "'" << tqMissingTool                                                   \
                         << "' is not installed; run scripts/install-deps.sh to test this";        \
        }                                                                                          \
    } while (0)
