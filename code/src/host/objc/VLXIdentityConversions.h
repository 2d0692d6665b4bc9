#pragma once

#import <Foundation/Foundation.h>

#include <memory>
#include <vector>

#import "host/objc/VLXMobileVisitorId.h"
#include "identity/api/IdentityPublicApi.h"
#include "identity/ids/VisitorId.h"
#include "identity/ids/VisitorIdAuthenticationState.h"

/// The conversions of VLXIdentity (Objective-C++ only). Any thread may call them.
namespace VelmoraMobile {

/// An autoreleased array of VLXMobileVisitorId, one per id, in list order.
NSMutableArray* ToVLXMobileVisitorIdArray(const std::vector<std::shared_ptr<VisitorId>>& visitor_ids);
/// Values 0 to 2 stay as they are; any other value gives unknown.
VLXMobileVisitorAuthenticationState ToObjCVisitorAuthenticationState(VisitorIdAuthenticationState state);
/// Values 0 to 2 stay as they are; any other value gives UNKNOWN.
VisitorIdAuthenticationState ToCppVisitorAuthenticationState(VLXMobileVisitorAuthenticationState state);
/// A new identity API on the running core; without one, an api whose calls are logged and dropped.
std::shared_ptr<IdentityPublicApi> GetCore();

}  // namespace VelmoraMobile
