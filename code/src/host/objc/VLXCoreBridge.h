#pragma once

#import <Foundation/Foundation.h>

#include <map>
#include <string>

/// Conversions between the host's Foundation objects and the core's plain values (Objective-C++
/// only). Nil and foreign entries never stop a call: nil gives "" or an empty map, and entries
/// that are not string to string are left out. Each may be called on any thread; the objects
/// returned are autoreleased.
namespace VelmoraMobile {

/// The UTF-8 text of `string`; "" for nil.
std::string ToCppString(NSString* string);
/// An autoreleased NSString of the UTF-8 `string` (bytes that are not UTF-8 give an empty string).
NSString* ToNSString(const std::string& string);
/// The string-to-string entries of `dictionary`; an empty map for nil.
std::map<std::string, std::string> ToStringMap(NSDictionary* dictionary);
/// A copy of `dictionary` with its string-to-string entries only; the other entries go into
/// `removed` when it is not nil. Nil gives an empty dictionary.
NSDictionary* CleanDictionary(NSDictionary* dictionary, NSMutableDictionary* removed);

}  // namespace VelmoraMobile
