// How components report failures: Error(text, code) calls the component's OnError handler
// and, unless the handler sets `handled` or the component is at design time, raises
// EQSException with the text "%s - %u - %x" made of the text and the code. Warning(text,
// code) only calls OnWarning. The handlers run on the thread that reports.
#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>

class TObject;

class EQSException : public std::runtime_error {
public:
    EQSException(const std::string& message, uint32_t code, const void* address = nullptr)
        : std::runtime_error(message), FCode(code), FAddress(address) {}
    uint32_t Code() const { return FCode; }
    // Where the failure was reported from, when the reporter gave it.
    const void* ExceptAddr() const { return FAddress; }

private:
    uint32_t FCode;
    const void* FAddress;
};

// (sender, text, code, var handled)
using TQSErrorEvent =
    std::function<void(TObject* sender, const std::string& text, uint32_t code, bool& handled)>;
// (sender, text, code)
using TQSWarningEvent =
    std::function<void(TObject* sender, const std::string& text, uint32_t code)>;

namespace mw {
// "text - code - hexcode": the code in decimal, then in hexadecimal, as "%s - %u - %x".
std::string QSErrorText(const std::string& text, uint32_t code);

// The common Error step: calls the handler, then raises unless handled or at design time.
void ReportError(TObject* sender, const TQSErrorEvent& handler, bool designing,
                 const std::string& text, uint32_t code, const void* address = nullptr);
// The common Warning step: calls the handler when there is one.
void ReportWarning(TObject* sender, const TQSWarningEvent& handler, const std::string& text,
                   uint32_t code);
}  // namespace mw
