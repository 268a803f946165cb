// The constant tables of the media type helpers and the functions that turn media types,
// codec keys and objects into the text that dialogs and logs show: the one-line description of
// a media type, the names of video codecs by FourCC and of audio codecs by wave format tag, and
// the names of the platform interfaces that an object answers.
//
// Everything here is stateless and may be called from any thread. The tables never change at
// run time; the lookups search them linearly (they serve dialogs and logs, not streaming).
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "comptr.h"
#include "frame/Containers.h"
#include "strmif.h"

namespace mw {

// A row of the video codec table: a four-character key (case counts) and its text.
struct VideoCodecRow {
    const char* key;
    const char* name;
};

// A row of the audio codec table: a wave format tag and its text.
struct AudioCodecRow {
    uint32_t tag;
    const char* name;
};

// The 263 rows of the video codec table, in table order.
std::span<const VideoCodecRow> VideoCodecTable();
// The 200 rows of the audio codec table, in table order (not sorted by tag).
std::span<const AudioCodecRow> AudioCodecTable();

}  // namespace mw

// "Major Type: ... - Sub Type: ... Format: ...". A type without a format block ends with the
// format label. Reads the format block only when cbFormat > 0 and pbFormat is set.
std::string DSGetMediaTypeDescription(const AM_MEDIA_TYPE* mediaType);

// The names of the interfaces of the interface name table that the object answers, in table
// order. An exception raised by the object's QueryInterface counts as "not supported". Rows
// whose IID is not available are skipped.
ComPtr<IStringArrayList> DSGetInterfaceNames(IUnknown* object);

// The text of the first video codec row whose key packs (first character lowest) to fourCC;
// otherwise the four bytes of fourCC, lowest first, followed by " Unknown".
std::string GQVGetVideoCodecName(uint32_t fourCC);

// The text of the first audio codec row with the tag; otherwise "Format <tag> Unknown".
std::string GQAGetAudioCodecName(uint32_t tag);
