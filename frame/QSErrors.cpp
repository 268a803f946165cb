#include "frame/QSErrors.h"

#include <cstdio>

namespace mw {

std::string QSErrorText(const std::string& text, uint32_t code) {
    char num[40];
    std::snprintf(num, sizeof num, " - %u - %x", code, code);
    return text + num;
}

void ReportError(TObject* sender, const TQSErrorEvent& handler, bool designing,
                 const std::string& text, uint32_t code, const void* address) {
    bool handled = false;
    if (handler) handler(sender, text, code, handled);
    if (!handled && !designing) throw EQSException(QSErrorText(text, code), code, address);
}

void ReportWarning(TObject* sender, const TQSWarningEvent& handler, const std::string& text,
                   uint32_t code) {
    if (handler) handler(sender, text, code);
}

}  // namespace mw
