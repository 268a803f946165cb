// Umbrella of the media object declarations.
#pragma once

#include "mediaerr.h"
#include "mediaobj.h"
#include "dmoreg.h"
#include "dmort.h"
