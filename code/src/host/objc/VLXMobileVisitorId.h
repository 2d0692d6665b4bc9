#import <Foundation/Foundation.h>

/// The authentication state of a customer id; the values are those of the core's
/// VisitorIdAuthenticationState.
typedef NS_ENUM(NSUInteger, VLXMobileVisitorAuthenticationState) {
    VLXMobileVisitorAuthenticationStateUnknown = 0,
    VLXMobileVisitorAuthenticationStateAuthenticated = 1,
    VLXMobileVisitorAuthenticationStateLoggedOut = 2,
};

/// One customer id as a host sees it. A plain value object; use it on one thread at a time.
@interface VLXMobileVisitorId : NSObject {
    NSString* idOrigin_;
    NSString* idType_;
    NSString* identifier_;
    VLXMobileVisitorAuthenticationState authenticationState_;
}

- (NSString*)idOrigin;
- (NSString*)idType;
- (NSString*)identifier;
- (VLXMobileVisitorAuthenticationState)authenticationState;

- (void)setIdOrigin:(NSString*)idOrigin;
- (void)setIdType:(NSString*)idType;
- (void)setIdentifier:(NSString*)identifier;
- (void)setAuthenticationState:(VLXMobileVisitorAuthenticationState)authenticationState;

@end
