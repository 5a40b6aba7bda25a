#ifndef CORVANE_PLATFORM_MACOS_TRANSPORT_ENDPOINT_H
#define CORVANE_PLATFORM_MACOS_TRANSPORT_ENDPOINT_H

#include "platform/XPCListenerEndpoint.h"
#include "platform/macos/frameworks/Foundation.h"

namespace corvane {

struct XPCListenerEndpoint::Transport {
  NSXPCListenerEndpoint* endpoint;
};

XPCListenerEndpoint endpointFromObject(NSXPCListenerEndpoint* endpoint);
/// The object of an endpoint, which is empty afterwards; nil if it has been.
NSXPCListenerEndpoint* takeObject(XPCListenerEndpoint& endpoint);

}  // namespace corvane

#endif
