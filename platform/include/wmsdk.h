// Umbrella of the Windows Media Format declarations.
#pragma once

#include "nserror.h"
#include "wmsdkidl.h"
