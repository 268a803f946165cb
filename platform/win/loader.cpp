// The in-process "libraries": names that services registered, with their entry points.
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "mwstring.h"
#include "winbase.h"
#include "winerror.h"
#include "winmem.h"

namespace {

struct Library {
    std::u16string name;  // canonical: lower case, with extension
    std::map<std::string, FARPROC> exports;
    int loads = 0;
};

struct Loader {
    std::mutex mutex;
    std::map<std::u16string, std::unique_ptr<Library>> libraries;  // by canonical name
    UINT errorMode = 0;
};

Loader& TheLoader() {
    static Loader* l = new Loader;
    return *l;
}

// "C:\Windows\System32\WMVCore.DLL" -> "wmvcore.dll"; "msacm32" -> "msacm32.dll". A trailing
// dot means "no extension" on the platform.
std::u16string Canonical(std::u16string_view path) {
    size_t slash = path.find_last_of(u"\\/");
    std::u16string base(slash == std::u16string_view::npos ? path : path.substr(slash + 1));
    for (auto& c : base)
        if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
    if (!base.empty() && base.back() == u'.')
        base.pop_back();
    else if (base.find(u'.') == std::u16string::npos)
        base += u".dll";
    return base;
}

Library* Find(Loader& l, HMODULE h) {
    for (auto& [name, lib] : l.libraries)
        if (reinterpret_cast<HMODULE>(lib.get()) == h) return lib.get();
    return nullptr;
}

Library& Ensure(Loader& l, const char16_t* name) {
    std::u16string key = Canonical(name ? name : u"");
    auto& slot = l.libraries[key];
    if (!slot) {
        slot = std::make_unique<Library>();
        slot->name = key;
    }
    return *slot;
}

}  // namespace

void mw::RegisterLibrary(const char16_t* library) {
    Loader& l = TheLoader();
    std::lock_guard lock(l.mutex);
    Ensure(l, library);
}

void mw::RegisterLibraryExport(const char16_t* library, const char* procName, FARPROC proc) {
    Loader& l = TheLoader();
    std::lock_guard lock(l.mutex);
    Ensure(l, library).exports[procName ? procName : ""] = proc;
}

HMODULE WINAPI LoadLibraryW(LPCWSTR lpLibFileName) {
    if (!lpLibFileName || !*lpLibFileName) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    Loader& l = TheLoader();
    std::lock_guard lock(l.mutex);
    auto it = l.libraries.find(Canonical(lpLibFileName));
    if (it == l.libraries.end()) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    ++it->second->loads;
    return reinterpret_cast<HMODULE>(it->second.get());
}

HMODULE WINAPI LoadLibraryA(LPCSTR lpLibFileName) {
    if (!lpLibFileName) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return LoadLibraryW(mw::Utf8ToUtf16(lpLibFileName).c_str());
}

HMODULE WINAPI GetModuleHandleW(LPCWSTR lpModuleName) {
    Loader& l = TheLoader();
    std::lock_guard lock(l.mutex);
    if (!lpModuleName) return nullptr;  // no executable module image on this platform layer
    auto it = l.libraries.find(Canonical(lpModuleName));
    if (it == l.libraries.end() || it->second->loads == 0) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    return reinterpret_cast<HMODULE>(it->second.get());
}

BOOL WINAPI FreeLibrary(HMODULE hLibModule) {
    Loader& l = TheLoader();
    std::lock_guard lock(l.mutex);
    Library* lib = Find(l, hLibModule);
    if (!lib || lib->loads == 0) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    --lib->loads;
    return TRUE;
}

FARPROC WINAPI GetProcAddress(HMODULE hModule, LPCSTR lpProcName) {
    Loader& l = TheLoader();
    std::lock_guard lock(l.mutex);
    Library* lib = Find(l, hModule);
    if (!lib) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    // Lookups by ordinal (a value below 64K in place of the name) find nothing here.
    if (!lpProcName || reinterpret_cast<uintptr_t>(lpProcName) < 0x10000) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    auto it = lib->exports.find(lpProcName);
    if (it == lib->exports.end()) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    return it->second;
}

UINT WINAPI SetErrorMode(UINT uMode) {
    Loader& l = TheLoader();
    std::lock_guard lock(l.mutex);
    UINT old = l.errorMode;
    l.errorMode = uMode;
    return old;
}

UINT WINAPI GetErrorMode() {
    Loader& l = TheLoader();
    std::lock_guard lock(l.mutex);
    return l.errorMode;
}

HMODULE SafeLoadLibrary(LPCWSTR filename, UINT errorMode) {
    UINT old = SetErrorMode(errorMode);
    HMODULE h = LoadLibraryW(filename);
    SetErrorMode(old);
    return h;
}

HMODULE SafeLoadLibrary(LPCSTR filename, UINT errorMode) {
    UINT old = SetErrorMode(errorMode);
    HMODULE h = LoadLibraryA(filename);
    SetErrorMode(old);
    return h;
}
