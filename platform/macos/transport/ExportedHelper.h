#ifndef CORVANE_PLATFORM_MACOS_TRANSPORT_EXPORTEDHELPER_H
#define CORVANE_PLATFORM_MACOS_TRANSPORT_EXPORTEDHELPER_H

#include "platform/ZELPrivilegedHelperControl.h"
#include "platform/ZELPrivilegedHelperProtocol.h"
#include "platform/macos/transport/Protocols.h"

/// Takes the messages of connections for the helper, as values. No exception of ours gets into the
/// frames of the system's library, and none of its own from here: a request that raised one is
/// never answered, and what is not answered the system tells the client.
@interface ZELExportedHelper : NSObject <ZELPrivilegedHelperService>
/// Both are borrowed and outlive the object. Without `control` its messages are not answered.
- (instancetype)initWithHelper:(corvane::ZELPrivilegedHelperProtocol*)helper
                       control:(corvane::ZELPrivilegedHelperControl*)control;
@end

#endif
