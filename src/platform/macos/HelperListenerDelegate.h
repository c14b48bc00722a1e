// HelperListenerDelegate: hands each new connection to the portable delegate of the same name.
// macOS only.
#pragma once

#import <Foundation/Foundation.h>

#include "daemon/HelperListenerDelegate.h"

@interface HelperListenerDelegate : NSObject <NSXPCListenerDelegate>
/// `delegate` outlives the object.
- (instancetype)initWithDelegate:(airflow::daemon::HelperListenerDelegate*)delegate;
@end
