// Umbrella of the media object declarations.
#pragma once

#include "dmoreg.h"
#include "dmort.h"
#include "mediaerr.h"
#include "mediaobj.h"
