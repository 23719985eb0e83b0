// A vixWorkerThread over the VDDK stand-in for one test (see BindingTest),
// and job threads whose end the test waits for with a bound.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include <vixworkerthread.h>

#include "binding_fixture.h"

namespace workertest {

using bindingtest::kTimeoutMs;
using bindingtest::Utf8;

class WorkerTest : public bindingtest::BindingTest {
protected:
    void SetUp() override;
    void TearDown() override;

    // Creates the worker (after Install), reaches the stand-in it loaded,
    // initialises VDDK through it and connects locally.
    void StartWorker();
    // Opens a 1 MiB memory disk through the worker.
    VixDiskLibHandle OpenMemDisk(const std::string &name, bool impersonate = false);

    // Runs body on a new job thread and waits for it at most kTimeoutMs. A
    // thread that hangs is left behind (with the worker): the test fails
    // instead of hanging.
    ::testing::AssertionResult RunOnJobThread(std::function<void()> body);
    // The same on a job thread that impersonates itself first; false in
    // *impersonated when Windows (or Wine) refused that.
    ::testing::AssertionResult RunImpersonating(std::function<void()> body, bool *impersonated);

    std::unique_ptr<vixWorkerThread> worker;
    VixDiskLibConnection connection = nullptr;
    // Set when a job thread was left hanging: the worker is then left too,
    // since destroying it could hang the test as well.
    bool abandoned = false;
};

}  // namespace workertest
