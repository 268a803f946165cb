// Umbrella of the filter graph service's declarations.
#pragma once

#include "amvideo.h"
#include "control.h"
#include "dvdmedia.h"
#include "errors.h"
#include "evcode.h"
#include "mmreg.h"
#include "objbase.h"
#include "ocidl.h"
#include "oleauto.h"
#include "olectl.h"
#include "strmif.h"
#include "uuids.h"
