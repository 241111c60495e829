// Variant file maintenance: reads every key of <Directory><Version>.ini into the
// variant settings and repairs the file on the way.
#pragma once

#include "platform/variant_settings.h"


// 0, or 1 when the variant file is missing or a value in it is invalid
int mkvers();
