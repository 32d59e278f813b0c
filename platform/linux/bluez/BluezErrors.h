#pragma once

#include "platform/Error.h"
#include "platform/linux/bluez/BluezBus.h"

namespace wrixel2::platform::bluez {

/// The error that an error reply stands for. An ATT error that it names is the code
/// (Core Specification Vol 3, Part F, 3.4.1.1), a missing object invalidHandle, a missing link
/// notConnected, anything else unknown.
Error errorOfReply(const BluezReply& reply);

bool isInProgress(const BluezReply& reply);
/// The object that was called is not there (any more).
bool isUnknownObject(const BluezReply& reply);
bool isAccessDenied(const BluezReply& reply);
/// Whether trying the same again cannot help.
bool isRefusal(const BluezReply& reply);

Error notConnectedError();
Error staleObjectError();
/// Of a link that ended with one of the codes connectionTimeout and peripheralDisconnected.
Error linkEndError(long code);

}  // namespace wrixel2::platform::bluez
