// The web-services client (build/bin/ravelkit-live/ravelkit.dll) loaded and bound
// by name from the interface's list, against the vSphere simulator whose URL the
// "vcsim" fixture leaves in VCSIM_URL_FILE. Without the simulator the tests skip.
#pragma once
#include <string>
#include <vector>
#include <gtest/gtest.h>
#include <ravelkit/ravelkit_api.h>
#include <skclass_mini/handles.h>

namespace livetest {

extern const char kUser[];
extern const char kPassword[];

// The simulator's URL ("https://127.0.0.1:<port>/sdk"), empty when it is not running.
std::string SimulatorUrl();

// The client library, loaded once per test program.
const ravelkit::EntryTable &Client();

std::string LastErrorText();

class LiveTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    // A connected, logged-in session of its own (closed at TearDown).
    void *OpenSession();

    const ravelkit::EntryTable *vmc = nullptr;
    std::string url;
    std::vector<void *> sessions;
};

}  // namespace livetest
