// FanHelperService: the object that the daemon exports; each message becomes a call of the portable
// service of the same name. macOS only.
#pragma once

#include "daemon/FanHelperService.h"
#import "platform/macos/FanHelperProtocol.h"

@interface FanHelperService : NSObject <FanHelperProtocol>
/// `service` outlives the object.
- (instancetype)initWithService:(airflow::daemon::FanHelperService*)service;
@end
