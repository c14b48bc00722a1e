// FanHelperProtocol: the commands of the daemon as they cross the boundary between processes.
//
// The compiler publishes each method's types beside its selector, and the client's proxy is built
// from them: the order, the names and the types of what is declared here are a contract with
// clients that exist already. macOS only.
#pragma once

#import <Foundation/Foundation.h>

/// Every reply is called exactly once. A code is what ControlResult::xpcCode() gives.
@protocol FanHelperProtocol
- (void)helperVersionWithReply:(void (^)(NSString* version))reply;
- (void)shutdownForUpgradeWithReply:(void (^)(void))reply;
- (void)setManualRPMWithFan:(NSInteger)fan
                        rpm:(NSInteger)rpm
                  withReply:(void (^)(NSInteger code))reply;
- (void)setPercentWithFan:(NSInteger)fan
                  percent:(double)percent
                withReply:(void (^)(NSInteger code))reply;
- (void)fullBlastWithReply:(void (^)(NSInteger code))reply;
- (void)automaticWithReply:(void (^)(NSInteger code))reply;
/// `plan` is a plan document (JSON).
- (void)applyConfig:(NSData*)plan withReply:(void (^)(NSInteger code))reply;
- (void)restoreAutoWithReply:(void (^)(void))reply;
- (void)heartbeat;
/// Replies with the published state (JSON), or with no bytes at all.
- (void)readStateWithReply:(void (^)(NSData* state))reply;
@end
