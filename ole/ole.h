#pragma once

/// @file
/// Everything libole exports.

#include <ole/version.h>

// Platform floor
#include <ole/platform/export.h>
#include <ole/platform/OS.h>
#include <ole/platform/Threads.h>
#include <ole/platform/CompletionPort.h>
#include <ole/platform/UUID.h>
#include <ole/platform/Exception.h>
#include <ole/platform/Assert.h>

// Core types
#include <ole/Qv/Ptr.h>
#include <ole/Qv/LightweightString.h>
#include <ole/Qv/Vector.h>
#include <ole/Qv/DLList.h>
#include <ole/Qv/XY.h>
#include <ole/Qv/QvLokiSingleton.h>
#include <ole/Qv/QvPooledObject.h>
#include <ole/Qv/Command.h>
#include <ole/Qv/Parsed.h>

// Runtime pieces on the core strings
#include <ole/runtime/Log.h>
#include <ole/runtime/Strings.h>
#include <ole/runtime/RegistryConfig.h>
#include <ole/runtime/Paths.h>

// Notification
#include <ole/misc/Notifier.h>
#include <ole/misc/ValServer.h>

// Commands
#include <ole/misc/Decoupler.h>

// Persistence and text files
#include <ole/misc/TextFile.h>
#include <ole/misc/GrowString.h>
#include <ole/misc/MemHolder.h>
#include <ole/misc/StreamFile.h>
#include <ole/misc/QvDataCompression.h>
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

// Commands and key mapping
#include <ole/misc/KeyMap.h>
#include <ole/misc/CommandMap.h>
#include <ole/misc/CommandMapMMC.h>
#include <ole/misc/CommandMacroManager.h>

// Video time and formats
#include <ole/misc/FrameRate.h>
#include <ole/misc/ProjectRate.h>
#include <ole/misc/filmgauge.h>
#include <ole/misc/tc_addr.h>
#include <ole/misc/tccvt.h>
#include <ole/misc/time_def.h>
#include <ole/misc/outputformat.h>
