// The stream probe, as the search for a stream runs it.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/streams/trial_history.h"

namespace faxx {

// InfoDecodeG3 on a record that was just set up, with the same result and Width. A trial that is sure to fail
// as an earlier one did is not run to its end.
int ProbeStream(CCITTG34* record, unsigned short* rows, TrialNotes& notes);

} // namespace faxx
