// Umbrella of the filter graph service's declarations.
#pragma once

#include "objbase.h"
#include "oleauto.h"
#include "ocidl.h"
#include "olectl.h"
#include "strmif.h"
#include "control.h"
#include "uuids.h"
#include "evcode.h"
#include "errors.h"
#include "amvideo.h"
#include "dvdmedia.h"
#include "mmreg.h"
