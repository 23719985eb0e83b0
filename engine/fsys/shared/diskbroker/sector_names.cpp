// Escaped file names and the data directory of the sector bookkeeping.
#include "sector_names.h"

#include <wchar.h>

#include <skclass_mini/configuration.h>
#include <skclass_mini/handles.h>

#include "diskbroker_private.h"

namespace sectormgr {

namespace {

const wchar_t kHex[] = L"0123456789abcdef";

// Names Windows gives to devices whatever the extension, and the master list.
const wchar_t *const kReservedNames[] = {L"con",  L"prn",  L"aux",  L"nul",  L"com1", L"com2", L"com3",
                                         L"com4", L"com5", L"com6", L"com7", L"com8", L"com9", L"lpt1",
                                         L"lpt2", L"lpt3", L"lpt4", L"lpt5", L"lpt6", L"lpt7", L"lpt8",
                                         L"lpt9", L"master"};

bool KeptAsIs(wchar_t c) { return (c >= L'a' && c <= L'z') || (c >= L'0' && c <= L'9') || c == L'-' || c == L'_'; }

void AppendHex(std::wstring &out, wchar_t c) {
    out += L'%';
    for (int shift = 12; shift >= 0; shift -= 4) out += kHex[(static_cast<unsigned>(c) >> shift) & 0xF];
}

void AppendEscaped(std::wstring &out, wchar_t c) {
    if (KeptAsIs(c)) {
        out += c;
    } else if (c >= L'A' && c <= L'Z') {
        out += L'^';
        out += static_cast<wchar_t>(c - L'A' + L'a');
    } else {
        AppendHex(out, c);
    }
}

bool IsReserved(const std::wstring &escaped) {
    for (const wchar_t *reserved : kReservedNames)
        if (escaped == reserved) return true;
    return false;
}

int HexValue(wchar_t c) {
    if (c >= L'0' && c <= L'9') return c - L'0';
    if (c >= L'a' && c <= L'f') return c - L'a' + 10;
    return -1;
}

struct Override {
    skclass::CriticalSection lock;
    bool set = false;    // guarded by lock
    std::wstring path;   // guarded by lock
};

Override &TheOverride() {
    static Override instance;
    return instance;
}

void StripTrailingBackslashes(std::wstring &path) {
    while (!path.empty() && path.back() == L'\\') path.pop_back();
}

}  // namespace

bool EscapeName(const std::wstring &name, std::wstring &escaped) {
    if (name.empty()) return false;
    std::wstring out;
    for (wchar_t c : name) {
        AppendEscaped(out, c);
        if (out.size() > kMaxEscapedName) return false;
    }
    if (IsReserved(out)) {
        std::wstring first;
        AppendHex(first, name[0]);
        out.replace(0, 1, first);  // reserved names are plain letters: one character
    }
    escaped.swap(out);
    return true;
}

bool UnescapeName(const std::wstring &escaped, std::wstring &name) {
    std::wstring out;
    for (size_t i = 0; i < escaped.size(); ++i) {
        const wchar_t c = escaped[i];
        if (KeptAsIs(c)) {
            out += c;
        } else if (c == L'^' && i + 1 < escaped.size() && escaped[i + 1] >= L'a' && escaped[i + 1] <= L'z') {
            out += static_cast<wchar_t>(escaped[++i] - L'a' + L'A');
        } else if (c == L'%' && i + 4 < escaped.size()) {
            unsigned value = 0;
            for (size_t k = 1; k <= 4; ++k) {
                const int digit = HexValue(escaped[i + k]);
                if (digit < 0) return false;
                value = value * 16 + static_cast<unsigned>(digit);
            }
            out += static_cast<wchar_t>(value);
            i += 4;
        } else {
            return false;
        }
    }
    // Only the one form EscapeName gives counts (a reserved name spelt plain,
    // or an escape that was not needed, is some other file).
    std::wstring again;
    if (!EscapeName(out, again) || again != escaped) return false;
    name.swap(out);
    return true;
}

std::wstring DataDirectory() {
    Override &override = TheOverride();
    {
        skclass::CsLock hold(override.lock);
        if (override.set) return override.path;
    }
    wcstring path;
    Configuration misc;
    if (diskbroker_detail::OpenSettingsKey(misc, diskbroker_detail::MiscKeyPath())) {
        misc.Load(L"Data Path", path);
        misc.Close();
    }
    StripTrailingBackslashes(path);
    return path.empty() ? std::wstring(L"C:") : std::wstring(path);
}

void SetDataDirectoryOverride(const wchar_t *path) {
    Override &override = TheOverride();
    skclass::CsLock hold(override.lock);
    override.set = path != nullptr && path[0] != L'\0';
    override.path = override.set ? path : L"";
    StripTrailingBackslashes(override.path);
}

}  // namespace sectormgr
