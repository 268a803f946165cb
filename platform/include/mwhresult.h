// The one HRESULT-to-text helper: "0x80004005 E_FAIL: Unspecified error". Pure, any thread.
#pragma once

#include <string>

#include "windef.h"

namespace mw {

// The code in hex, its name when known, and the platform's message when known:
// "0x80004005 E_FAIL: Unspecified error", "0x80040209 VFW_E_NOT_CONNECTED: ...", "0x8004FFFF".
std::string HResultText(HRESULT hr);
// The platform's name of the code ("E_FAIL"), or empty. Where two families share a value the
// older name wins (VFW_E_* before DMO_E_*).
std::string HResultName(HRESULT hr);
// The platform's message text, or empty when this layer does not know it.
std::string HResultMessage(HRESULT hr);

}  // namespace mw
