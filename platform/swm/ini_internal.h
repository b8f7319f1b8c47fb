// Shared between the INI reader and its lookup: loading with a status result.
#ifndef SWM_INI_INTERNAL_H
#define SWM_INI_INTERNAL_H

#include <cstdint>
#include <cstdio>

#include "swm.h"

namespace swm {

// Reads stream to its end into *profile (NULL when the file holds no section).
// SWM_OK, SWM_ERR_FORMAT (malformed), SWM_ERR_IO (read error) or SWM_ERR_NOMEM;
// on failure *profile is NULL and nothing stays allocated.
uint32_t LoadProfile(FILE *stream, SWM_INI_SECTION_S **profile);

}  // namespace swm

#endif  // SWM_INI_INTERNAL_H
