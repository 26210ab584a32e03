// The filter's entry points, as the kernel calls them.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"

// Describes a file: the header-prefixed G4 format, or a raw G3 stream where probing is permitted.
// Returns SUCCESS, FAILURE (nothing recognised) or an error; ERROR_NULL_PTR for a null argument.
FAXX_API int fltInfo(_INFODISPATCH* dispatch);
FAXX_API int fltInfoFAX(_INFODISPATCH* dispatch);

// Loads the file that fltInfo described. SUCCESS also for damaged data, told by dispatch->Status.
FAXX_API int fltLoad(_LOADDISPATCH* dispatch);
FAXX_API int fltLoadFAX(_LOADDISPATCH* dispatch);
