#import "host/objc/VLXMobileVisitorId.h"

@implementation VLXMobileVisitorId

- (void)dealloc {
    [idOrigin_ release];
    [idType_ release];
    [identifier_ release];
    [super dealloc];
}

- (NSString*)idOrigin {
    return idOrigin_;
}

- (NSString*)idType {
    return idType_;
}

- (NSString*)identifier {
    return identifier_;
}

- (VLXMobileVisitorAuthenticationState)authenticationState {
    return authenticationState_;
}

- (void)setIdOrigin:(NSString*)idOrigin {
    NSString* copy = [idOrigin copy];
    [idOrigin_ release];
    idOrigin_ = copy;
}

- (void)setIdType:(NSString*)idType {
    NSString* copy = [idType copy];
    [idType_ release];
    idType_ = copy;
}

- (void)setIdentifier:(NSString*)identifier {
    NSString* copy = [identifier copy];
    [identifier_ release];
    identifier_ = copy;
}

- (void)setAuthenticationState:(VLXMobileVisitorAuthenticationState)authenticationState {
    authenticationState_ = authenticationState;
}

- (NSString*)description {
    return [NSString stringWithFormat:@"<VLXMobileVisitorId origin=%@ type=%@ id=%@ state=%lu>", idOrigin_, idType_,
                                      identifier_, (unsigned long)authenticationState_];
}

@end
