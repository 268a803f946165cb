// GUID with comparison, hashing and the platform's text form
// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}".
#pragma once

#include <cstring>
#include <functional>
#include <string>

#include "windef.h"

typedef struct _GUID {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];
} GUID;

typedef GUID IID;
typedef GUID CLSID;
typedef GUID FMTID;
typedef const GUID& REFGUID;
typedef const IID& REFIID;
typedef const CLSID& REFCLSID;
typedef GUID* LPGUID;
typedef CLSID* LPCLSID;

static_assert(sizeof(GUID) == 16, "GUID is 16 bytes");

constexpr bool IsEqualGUID(const GUID& a, const GUID& b) {
    if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
    for (int i = 0; i < 8; ++i)
        if (a.Data4[i] != b.Data4[i]) return false;
    return true;
}
constexpr bool IsEqualIID(const IID& a, const IID& b) {
    return IsEqualGUID(a, b);
}
constexpr bool IsEqualCLSID(const CLSID& a, const CLSID& b) {
    return IsEqualGUID(a, b);
}
constexpr bool operator==(const GUID& a, const GUID& b) {
    return IsEqualGUID(a, b);
}
inline bool operator<(const GUID& a, const GUID& b) {
    return std::memcmp(&a, &b, sizeof(GUID)) < 0;
}

// Declares a GUID constant with its published value; usable in headers (one definition).
#define DEFINE_GUID(name, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8) \
    inline constexpr GUID name = {l, w1, w2, {b1, b2, b3, b4, b5, b6, b7, b8}}

inline constexpr GUID GUID_NULL = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};
#define IID_NULL GUID_NULL
#define CLSID_NULL GUID_NULL

namespace mw {
// "{6BDD1FC6-810F-11D0-BEC7-08002BE2092F}", upper case, as the platform writes it.
std::string GuidToString(const GUID& g);
// Accepts the text form with or without braces, any case; false on anything else.
bool GuidFromString(const std::string& text, GUID& out);
}  // namespace mw

template <>
struct std::hash<GUID> {
    size_t operator()(const GUID& g) const noexcept {
        uint64_t a, b;
        std::memcpy(&a, &g, 8);
        std::memcpy(&b, reinterpret_cast<const char*>(&g) + 8, 8);
        return std::hash<uint64_t>()(a * 0x9E3779B97F4A7C15ull ^ b);
    }
};
