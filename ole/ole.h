#pragma once

// Everything libole exports.

#include <ole/export.h>

// Core types
#include <ole/Qv/Ptr.h>
#include <ole/Qv/LightweightString.h>
#include <ole/Qv/Vector.h>
#include <ole/Qv/DLList.h>
#include <ole/Qv/XY.h>

// Platform layer and runtime
#include <platform/OS.h>
#include <platform/Threads.h>
#include <platform/UUID.h>
#include <platform/Exception.h>
#include <platform/Assert.h>
#include <platform/Log.h>
#include <platform/Strings.h>
#include <platform/RegistryConfig.h>
#include <platform/Paths.h>

// Notification
#include <ole/misc/Notifier.h>
#include <ole/misc/ValServer.h>

// Persistence and text files
#include <ole/misc/TextFile.h>
#include <ole/misc/GrowString.h>
#include <ole/misc/MemHolder.h>
#include <ole/misc/StreamFile.h>
#include <ole/misc/strmable.h>

// Identity
#include <ole/misc/Cookie.h>
#include <ole/misc/CookieJar.h>
#include <ole/misc/Array.h>
#include <ole/misc/CookieSet.h>
#include <ole/misc/IdStamp.h>

// Configuration
#include <ole/misc/Dirtiable.h>
#include <ole/misc/strp_field.h>
#include <ole/misc/configb.h>
#include <ole/misc/EditorPreferences.h>

// Video time and formats
#include <ole/misc/FrameRate.h>
#include <ole/misc/ProjectRate.h>
#include <ole/misc/filmgauge.h>
#include <ole/misc/tccvt.h>
#include <ole/misc/time_def.h>
#include <ole/misc/outputformat.h>
