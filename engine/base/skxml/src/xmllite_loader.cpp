#include "xmllite_support.h"

#include <mutex>

namespace skxml {
namespace {

// FARPROC to a typed pointer through a neutral function type (quiet on both
// GCC and MSVC).
template <typename F>
bool Resolve(HMODULE module, const char *name, F &out) {
    FARPROC proc = GetProcAddress(module, name);
    out = reinterpret_cast<F>(reinterpret_cast<void (*)()>(proc));
    return proc != nullptr;
}

struct Loaded {
    XmlLiteApi api = {};
    bool ok = false;
    std::wstring error;
};

void Load(Loaded &loaded) {
    // Deliberately never freed: the library is needed until process end.
    HMODULE module = LoadLibraryW(L"xmllite.dll");
    if (module == nullptr) {
        loaded.error = L"xmllite.dll could not be loaded, Windows error " + std::to_wstring(GetLastError());
        return;
    }
    if (!Resolve(module, "CreateXmlReader", loaded.api.createReader) ||
        !Resolve(module, "CreateXmlReaderInputWithEncodingName", loaded.api.createInputWithEncodingName)) {
        loaded.error = L"xmllite.dll lacks CreateXmlReader or CreateXmlReaderInputWithEncodingName";
        return;
    }
    loaded.ok = true;
}

}  // namespace

const XmlLiteApi *XmlLite(std::wstring &loadError) {
    static Loaded *loaded = [] {
        Loaded *l = new Loaded;  // never destroyed, like the library it describes
        Load(*l);
        return l;
    }();
    if (!loaded->ok) {
        loadError = loaded->error;
        return nullptr;
    }
    return &loaded->api;
}

}  // namespace skxml
