#import "platform/macos/FanHelperService.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "numbers/Units.h"
#include "platform/macos/FoundationText.h"

namespace {

using airflow::numbers::FanIndex, airflow::numbers::Percent, airflow::numbers::WholeRPM;

using airflow::platform::dataOf;
using airflow::platform::stringOf;

std::string bytesOf(NSData* data) {
    std::string bytes(data.length, '\0');
    [data getBytes:bytes.data() length:bytes.size()];
    return bytes;
}

// A client decides what comes in a message. One without a block to answer is no reason to crash.

std::function<void()> plainReply(void (^reply)(void)) {
    return [reply] {
        if (reply) reply();
    };
}

airflow::daemon::FanHelperService::CodeReply codeReply(void (^reply)(NSInteger)) {
    return [reply](std::int64_t code) {
        if (reply) reply(code);
    };
}

}  // namespace

@implementation FanHelperService {
    airflow::daemon::FanHelperService* portable;
}

- (instancetype)initWithService:(airflow::daemon::FanHelperService*)service {
    self = [super init];
    portable = service;
    return self;
}

- (void)helperVersionWithReply:(void (^)(NSString*))reply {
    portable->helperVersion([reply](std::string_view version) {
        if (reply) reply(stringOf(version));
    });
}

- (void)shutdownForUpgradeWithReply:(void (^)(void))reply {
    portable->shutdownForUpgrade(plainReply(reply));
}

- (void)setManualRPMWithFan:(NSInteger)fan rpm:(NSInteger)rpm withReply:(void (^)(NSInteger))reply {
    portable->setManualRPM(FanIndex(fan), WholeRPM(rpm), codeReply(reply));
}

- (void)setPercentWithFan:(NSInteger)fan
                  percent:(double)percent
                withReply:(void (^)(NSInteger))reply {
    portable->setPercent(FanIndex(fan), Percent(percent), codeReply(reply));
}

- (void)fullBlastWithReply:(void (^)(NSInteger))reply {
    portable->fullBlast(codeReply(reply));
}

- (void)automaticWithReply:(void (^)(NSInteger))reply {
    portable->automatic(codeReply(reply));
}

- (void)applyConfig:(NSData*)plan withReply:(void (^)(NSInteger))reply {
    portable->applyConfig(bytesOf(plan), codeReply(reply));
}

- (void)restoreAutoWithReply:(void (^)(void))reply {
    portable->restoreAuto(plainReply(reply));
}

- (void)heartbeat {
    portable->heartbeat();
}

- (void)readStateWithReply:(void (^)(NSData*))reply {
    portable->readState([reply](std::string_view state) {
        if (reply) reply(dataOf(state));
    });
}

@end
