// Umbrella of the OLE headers.
#pragma once

#include "objbase.h"
#include "oleauto.h"
#include "olectl.h"
