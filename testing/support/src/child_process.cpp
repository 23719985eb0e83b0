#include <dbtest/child_process.h>

#include <dbtest/install_files.h>

namespace dbtest {

namespace {

DWORD WINAPI ReadToTheEnd(void *child) {
    static_cast<ChildProcess *>(child)->ReadUntilLine("\x01never");
    return 0;
}

}  // namespace

ChildProcess::ChildProcess(const std::wstring &program, const std::wstring &arguments, bool captureOutput) {
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    skclass::UniqueHandle childEnd;
    if (captureOutput) {
        SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
        HANDLE read = nullptr, write = nullptr;
        if (!CreatePipe(&read, &write, &inherit, 0)) {
            startError_ = GetLastError();
            return;
        }
        out_.reset(read);
        childEnd.reset(write);
        SetHandleInformation(read, HANDLE_FLAG_INHERIT, 0);
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
        startup.hStdOutput = write;
        startup.hStdError = write;
    }
    std::wstring line = L"\"" + ExeFolder() + program + L"\" " + arguments;
    PROCESS_INFORMATION info{};
    if (!CreateProcessW(nullptr, &line[0], nullptr, nullptr, captureOutput, 0, nullptr, nullptr, &startup, &info)) {
        startError_ = GetLastError();
        return;
    }
    process_.reset(info.hProcess);
    thread_.reset(info.hThread);
}

ChildProcess::~ChildProcess() {
    if (process_ && WaitForSingleObject(process_.get(), 0) == WAIT_TIMEOUT) Kill(10000);
}

bool ChildProcess::ReadUntilLine(const std::string &marker) {
    std::string line;
    char c;
    DWORD got = 0;
    while (out_ && ReadFile(out_.get(), &c, 1, &got, nullptr) && got == 1) {
        output_ += c;
        if (c != '\n') {
            line += c;
            continue;
        }
        if (line.find(marker) != std::string::npos) return true;
        line.clear();
    }
    return false;
}

int64_t ChildProcess::Finish(DWORD timeoutMs) {
    if (!process_) return -2;
    // The rest of the output is read beside the bounded wait, so a child that
    // hangs with its output open fails the test instead of holding it; once
    // the child is gone, so is its end of the pipe, and the read ends.
    skclass::UniqueHandle reader(out_ ? CreateThread(nullptr, 0, ReadToTheEnd, this, 0, nullptr) : nullptr);
    if (out_ && !reader) ReadUntilLine("\x01never");
    const bool ended = WaitForSingleObject(process_.get(), timeoutMs) == WAIT_OBJECT_0;
    if (!ended) Kill(timeoutMs);
    if (reader) WaitForSingleObject(reader.get(), INFINITE);
    if (!ended) return -1;
    DWORD code = 0;
    GetExitCodeProcess(process_.get(), &code);
    return code;
}

bool ChildProcess::Kill(DWORD timeoutMs) {
    SuspendThread(thread_.get());
    DWORD code = 0;
    const bool running = GetExitCodeProcess(process_.get(), &code) && code == STILL_ACTIVE;
    TerminateProcess(process_.get(), 99);
    WaitForSingleObject(process_.get(), timeoutMs);
    return running;
}

}  // namespace dbtest
