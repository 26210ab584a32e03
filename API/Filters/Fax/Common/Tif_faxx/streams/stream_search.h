// The search for a raw G3 stream in a handle.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/streams/trial_history.h"

namespace faxx {

// Tries the first 2000 offsets and describes what it finds in info. SUCCESS where info->Width is positive in
// the end, FAILURE where not, or the status of a decoder set-up that failed. rows: kRawRowWords elements.
int FindStream(CCITTG34* record, tagHANDLE* handle, _LOADINFO* info, unsigned short* rows,
               TrialHistory& history);

} // namespace faxx
