#include "platform/macos/XPCListener.h"

#import <Foundation/Foundation.h>

#include "daemon/LogLines.h"
#include "platform/macos/FoundationText.h"
#import "platform/macos/HelperListenerDelegate.h"

namespace airflow::platform {

namespace {

class XPCListener final : public daemon::Listener {
public:
    void resume(daemon::HelperListenerDelegate& portable) override {
        delegate = [[::HelperListenerDelegate alloc] initWithDelegate:&portable];
        listener =
            [[NSXPCListener alloc] initWithMachServiceName:stringOf(daemon::machServiceName)];
        listener.delegate = delegate;
        [listener resume];
    }

private:
    ::HelperListenerDelegate* delegate;  // the listener itself holds it only weakly
    NSXPCListener* listener;
};

}  // namespace

std::unique_ptr<daemon::Listener> makeXPCListener() {
    return std::make_unique<XPCListener>();
}

}  // namespace airflow::platform
