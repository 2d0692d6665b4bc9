#import <Foundation/Foundation.h>

/// Starts and stops the process's one core for an Objective-C host; VLXIdentity calls reach
/// it until it stops. Call these on any thread but a callback's.
@interface VLXMobileCore : NSObject

/// Starts the core and returns once its modules are registered. `dataDirectory` nil: the
/// default folder ($VELMORA_DATA_DIR, ...). `configurationFile` nil: none; else a flat JSON
/// object. `configuration`: configuration keys to NSString or NSNumber values (BOOL numbers
/// become booleans); other entries are logged and left out. NO, logged, when a core runs
/// already or the start failed.
+ (BOOL)startWithDataDirectory:(NSString*)dataDirectory
             configurationFile:(NSString*)configurationFile
                 configuration:(NSDictionary*)configuration;
/// Stops the running core within its stop timeout; YES when it ended in time or none ran.
+ (BOOL)stop;

@end
