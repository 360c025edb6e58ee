#pragma once

// Everything libole exports, in one include.

#include <ole/misc/GrowString.h>
#include <ole/misc/MemHolder.h>
#include <ole/misc/StreamFile.h>
#include <ole/misc/strmable.h>
