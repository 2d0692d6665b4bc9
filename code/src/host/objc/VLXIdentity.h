#import <Foundation/Foundation.h>

#import "host/objc/VLXMobileVisitorId.h"

#ifdef __cplusplus
extern "C" {
#endif
/// The library's version number, 1.0.
extern double VLXIdentity_iOSVersionNumber;
/// The library's version banner.
extern const unsigned char VLXIdentity_iOSVersionString[];
#ifdef __cplusplus
}
#endif

/// The identity extension as an Objective-C host sees it: class methods only, no state. Each
/// turns the host's objects into the core's values and calls the identity API on the running
/// core (start one first, e.g. with VLXMobileCore); without a running core a call is logged and
/// dropped. Nil strings and dictionaries count as "" and as empty.
///
/// Every method may be called on any thread and returns as soon as the request is on the bus.
/// Callbacks run later on a thread of the core, inside an autorelease pool of their own; only
/// the immediate call of appendToUrl:withCallback: runs on the caller's thread. Blocks are
/// copied, so they may live on the stack. A request that is never answered never calls back.
@interface VLXIdentity : NSObject

/// "1.0.0".
+ (NSString*)extensionVersion;
/// Registers the identity module on the running core unless it is there already.
+ (void)registerExtension;
/// Calls back with `baseUrl` decorated with the visitor's data. A nil or empty URL is called
/// back at once as it came, and once more when the answer arrives.
+ (void)appendToUrl:(NSURL*)baseUrl withCallback:(void (^)(NSURL* urlWithVisitorData))callback;
/// Logs the entries that are not string to string; sends nothing.
+ (void)collectPii:(NSDictionary*)data;
/// Calls back with the customer ids (VLXMobileVisitorId), in the module's order; never when
/// there are none.
+ (void)getIdentifiers:(void (^)(NSArray* visitorIds))callback;
/// Calls back with the MID, "" while there is none.
+ (void)getOndaraCloudId:(void (^)(NSString* ondaraCloudId))callback;
/// A state out of range syncs as unknown.
+ (void)syncIdentifier:(NSString*)identifierType
            identifier:(NSString*)identifier
        authentication:(VLXMobileVisitorAuthenticationState)authenticationState;
/// Syncs the string-to-string entries of `identifiers`, with the state unknown.
+ (void)syncIdentifiers:(NSDictionary*)identifiers;
+ (void)syncIdentifiers:(NSDictionary*)identifiers
         authentication:(VLXMobileVisitorAuthenticationState)authenticationState;

@end
