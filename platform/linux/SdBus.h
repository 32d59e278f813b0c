#pragma once

/// The thin layer over sd-bus that everything on a bus is built on.
#include "platform/linux/BusConnection.h"  // IWYU pragma: export
#include "platform/linux/BusInterface.h"   // IWYU pragma: export
#include "platform/linux/BusMessage.h"     // IWYU pragma: export
#include "platform/linux/BusSlot.h"        // IWYU pragma: export
#include "platform/linux/BusValues.h"      // IWYU pragma: export
