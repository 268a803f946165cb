// Text of result codes: name tables generated from the declarations, and the platform's
// messages for the codes whose texts this layer knows.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "HResultNames.h"
#include "errors.h"
#include "mwhresult.h"
#include "mwstring.h"
#include "winerror.h"

namespace {

struct Message {
    uint32_t code;
    const char* text;
};

// The system's message texts (FormatMessage) of the common codes.
constexpr Message kMessages[] = {
    {0x00000000, "The operation completed successfully."},
    {0x80004001, "Not implemented"},
    {0x80004002, "No such interface supported"},
    {0x80004003, "Invalid pointer"},
    {0x80004004, "Operation aborted"},
    {0x80004005, "Unspecified error"},
    {0x8000FFFF, "Catastrophic failure"},
    {0x80070002, "The system cannot find the file specified."},
    {0x80070003, "The system cannot find the path specified."},
    {0x80070005, "Access is denied."},
    {0x80070006, "The handle is invalid."},
    {0x8007000E, "Not enough memory resources are available to complete this operation."},
    {0x80070057, "The parameter is incorrect."},
    {0x80040110, "Class does not support aggregation (or class object is remote)"},
    {0x80040111, "ClassFactory cannot supply requested class"},
    {0x80040154, "Class not registered"},
    {0x800401F0, "CoInitialize has not been called."},
    {0x800401E4, "Invalid syntax"},
    {0x800401E5, "Object could not be found"},
};

}  // namespace

std::string mw::HResultName(HRESULT hr) {
    const uint32_t code = static_cast<uint32_t>(hr);
    const auto* begin = std::begin(detail::kHResultNames);
    const auto* end = std::end(detail::kHResultNames);
    const auto* it = std::lower_bound(
        begin, end, code, [](const detail::HResultName& n, uint32_t c) { return n.code < c; });
    if (it != end && it->code == code) return it->name;
    // Win32 errors carried as HRESULTs (facility 7).
    if ((code & 0xFFFF0000u) == 0x80070000u) {
        const uint32_t w = code & 0xFFFF;
        for (const auto& n : detail::kWin32Names)
            if (n.code == w) return std::string("HRESULT_FROM_WIN32(") + n.name + ")";
    }
    return {};
}

std::string mw::HResultMessage(HRESULT hr) {
    for (const auto& m : kMessages)
        if (m.code == static_cast<uint32_t>(hr)) return m.text;
    return {};
}

std::string mw::HResultText(HRESULT hr) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%08X", static_cast<unsigned>(hr));
    std::string text = buf;
    std::string name = HResultName(hr);
    if (!name.empty()) text += " " + name;
    std::string message = HResultMessage(hr);
    if (!message.empty()) text += (name.empty() ? " " : ": ") + message;
    return text;
}

namespace {
std::string ErrorText(HRESULT hr) {
    std::string text = mw::HResultMessage(hr);
    if (text.empty()) text = mw::HResultName(hr);
    if (text.empty()) {
        char buf[40];
        std::snprintf(buf, sizeof buf, "Unknown error 0x%08X", static_cast<unsigned>(hr));
        text = buf;
    }
    if (text.size() > MAX_ERROR_TEXT_LEN - 1) text.resize(MAX_ERROR_TEXT_LEN - 1);
    return text;
}
}  // namespace

DWORD WINAPI AMGetErrorTextA(HRESULT hr, LPSTR pbuffer, DWORD MaxLen) {
    if (!pbuffer || MaxLen == 0) return 0;
    std::string text = ErrorText(hr);
    if (text.size() >= MaxLen) text.resize(MaxLen - 1);
    std::memcpy(pbuffer, text.c_str(), text.size() + 1);
    return static_cast<DWORD>(text.size());
}

DWORD WINAPI AMGetErrorTextW(HRESULT hr, LPWSTR pbuffer, DWORD MaxLen) {
    if (!pbuffer || MaxLen == 0) return 0;
    std::u16string text = mw::Utf8ToUtf16(ErrorText(hr));
    if (text.size() >= MaxLen) text.resize(MaxLen - 1);
    std::memcpy(pbuffer, text.c_str(), (text.size() + 1) * sizeof(WCHAR));
    return static_cast<DWORD>(text.size());
}
