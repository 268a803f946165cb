// Text form of GUIDs.
#include <cctype>
#include <cstdio>

#include "guiddef.h"

namespace mw {

std::string GuidToString(const GUID& g) {
    char buf[40];
    std::snprintf(buf, sizeof buf, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", g.Data1,
                  g.Data2, g.Data3, g.Data4[0], g.Data4[1], g.Data4[2], g.Data4[3], g.Data4[4],
                  g.Data4[5], g.Data4[6], g.Data4[7]);
    return buf;
}

namespace {
int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}
}  // namespace

bool GuidFromString(const std::string& text, GUID& out) {
    std::string s = text;
    if (s.size() == 38 && s.front() == '{' && s.back() == '}') s = s.substr(1, 36);
    if (s.size() != 36 || s[8] != '-' || s[13] != '-' || s[18] != '-' || s[23] != '-') return false;
    uint8_t bytes[16];
    int n = 0;
    for (size_t i = 0; i < s.size();) {
        if (s[i] == '-') {
            ++i;
            continue;
        }
        int hi = HexValue(s[i]), lo = HexValue(s[i + 1]);
        if (hi < 0 || lo < 0) return false;
        bytes[n++] = static_cast<uint8_t>(hi * 16 + lo);
        i += 2;
    }
    GUID g{};
    g.Data1 = (uint32_t(bytes[0]) << 24) | (uint32_t(bytes[1]) << 16) | (uint32_t(bytes[2]) << 8) |
              bytes[3];
    g.Data2 = static_cast<uint16_t>((bytes[4] << 8) | bytes[5]);
    g.Data3 = static_cast<uint16_t>((bytes[6] << 8) | bytes[7]);
    for (int i = 0; i < 8; ++i)
        g.Data4[i] = bytes[8 + i];
    out = g;
    return true;
}

}  // namespace mw
