#include "ancestors.h"

#include "errors.h"
#include "files.h"

namespace dbtool {
namespace {

const wchar_t kOption[] = L"--ancestors";

std::wstring Folder(const std::wstring &word) {
    std::wstring folder = FullPath(word);
    // "C:\" stays a root; any other trailing backslash would double in "folder\file".
    while (folder.size() > 3 && folder.back() == L'\\') folder.pop_back();
    return folder;
}

}  // namespace

std::vector<std::wstring> TakeAncestors(std::vector<std::wstring> &words) {
    std::vector<std::wstring> folders;
    std::vector<std::wstring> rest;
    const std::wstring withValue = std::wstring(kOption) + L"=";
    for (size_t i = 0; i < words.size(); ++i) {
        if (words[i].compare(0, withValue.size(), withValue) == 0) {
            if (words[i].size() == withValue.size()) throw UsageError(L"--ancestors needs a folder");
            folders.push_back(Folder(words[i].substr(withValue.size())));
            continue;
        }
        if (words[i] != kOption) {
            rest.push_back(words[i]);
            continue;
        }
        const size_t before = folders.size();
        while (i + 1 < words.size() && words[i + 1].compare(0, 2, L"--") != 0) folders.push_back(Folder(words[++i]));
        if (folders.size() == before) throw UsageError(L"--ancestors needs at least one folder");
    }
    words.swap(rest);
    return folders;
}

}  // namespace dbtool
