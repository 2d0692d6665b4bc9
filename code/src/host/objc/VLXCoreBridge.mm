#import "host/objc/VLXCoreBridge.h"

namespace VelmoraMobile {

namespace {

bool IsString(id object) {
    return object != nil && [object isKindOfClass:[NSString class]];
}

}  // namespace

std::string ToCppString(NSString* string) {
    if (!IsString(string)) {
        return std::string();
    }
    const char* text = [string UTF8String];
    return text != nullptr ? std::string(text) : std::string();
}

NSString* ToNSString(const std::string& string) {
    NSString* text = [[[NSString alloc] initWithBytes:string.data() length:string.size()
                                             encoding:NSUTF8StringEncoding] autorelease];
    return text != nil ? text : @"";
}

std::map<std::string, std::string> ToStringMap(NSDictionary* dictionary) {
    std::map<std::string, std::string> map;
    for (id key in dictionary) {
        id value = [dictionary objectForKey:key];
        if (IsString(key) && IsString(value)) {
            map[ToCppString(key)] = ToCppString(value);
        }
    }
    return map;
}

NSDictionary* CleanDictionary(NSDictionary* dictionary, NSMutableDictionary* removed) {
    NSMutableDictionary* clean = [NSMutableDictionary dictionaryWithCapacity:[dictionary count]];
    for (id key in dictionary) {
        id value = [dictionary objectForKey:key];
        if (IsString(key) && IsString(value)) {
            [clean setObject:value forKey:key];
        } else {
            [removed setObject:value forKey:key];
        }
    }
    return clean;
}

}  // namespace VelmoraMobile
