// What the daemon uses of Foundation: data, and connections to other processes.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <objc/NSObject.h>

@class NSString;

@interface NSData : NSObject
@property(readonly) NSUInteger length;
- (void)getBytes:(void*)buffer length:(NSUInteger)length;
@end

@interface NSXPCInterface : NSObject
+ (NSXPCInterface*)interfaceWithProtocol:(Protocol*)protocol;
@end

@interface NSXPCConnection : NSObject
@property(retain) NSXPCInterface* exportedInterface;
@property(retain) id exportedObject;
@property(copy) void (^interruptionHandler)(void);
@property(copy) void (^invalidationHandler)(void);
- (void)setCodeSigningRequirement:(NSString*)requirement;
- (void)resume;
@end

@class NSXPCListener;

@protocol NSXPCListenerDelegate <NSObject>
@optional
- (BOOL)listener:(NSXPCListener*)listener shouldAcceptNewConnection:(NSXPCConnection*)newConnection;
@end

@interface NSXPCListener : NSObject
- (instancetype)initWithMachServiceName:(NSString*)name;
@property(weak) id<NSXPCListenerDelegate> delegate;
- (void)resume;
@end
