#import "platform/macos/HelperListenerDelegate.h"

#include <functional>
#include <string_view>
#include <utility>

#import "platform/macos/FanHelperService.h"
#include "platform/macos/FoundationText.h"

namespace {

/// A connection that Foundation has accepted, for as long as the delegate configures it.
class XPCConnection final : public airflow::daemon::Connection {
public:
    /// `exported` is the one object that all connections share; made for the first of them.
    XPCConnection(NSXPCConnection* accepted, FanHelperService* __strong& exported)
        : connection(accepted), exportedObject(exported) {}

    void exportService(airflow::daemon::FanHelperService& service) override {
        if (!exportedObject) {
            exportedObject = [[FanHelperService alloc] initWithService:&service];
        }
        connection.exportedInterface =
            [NSXPCInterface interfaceWithProtocol:@protocol(FanHelperProtocol)];
        connection.exportedObject = exportedObject;
    }
    void setCodeSigningRequirement(std::string_view requirement) override {
        [connection setCodeSigningRequirement:airflow::platform::stringOf(requirement)];
    }
    void setInvalidationHandler(std::function<void()> handler) override {
        connection.invalidationHandler = ^{
          handler();
        };
    }
    void setInterruptionHandler(std::function<void()> handler) override {
        connection.interruptionHandler = ^{
          handler();
        };
    }
    void resume() override { [connection resume]; }

private:
    NSXPCConnection* const connection;
    FanHelperService* __strong& exportedObject;
};

}  // namespace

@implementation HelperListenerDelegate {
    airflow::daemon::HelperListenerDelegate* portable;
    FanHelperService* exportedObject;
}

- (instancetype)initWithDelegate:(airflow::daemon::HelperListenerDelegate*)delegate {
    self = [super init];
    portable = delegate;
    return self;
}

- (BOOL)listener:(NSXPCListener*)listener
    shouldAcceptNewConnection:(NSXPCConnection*)newConnection {
    (void)listener;  // there is only one
    XPCConnection connection(newConnection, exportedObject);
    return portable->shouldAccept(connection);
}

@end
