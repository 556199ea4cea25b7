#include "app/RunApplication.h"

#include "app/AppDelegate.h"
#include "platform/Application.h"

namespace glintmark {

std::shared_ptr<AppDelegate> runApplication(platform::Application& application) {
    application.setActivationPolicy(platform::ActivationPolicy::accessory);
    auto delegate = std::make_shared<AppDelegate>();
    application.setDelegate(*delegate);
    application.run();
    return delegate;
}

}  // namespace glintmark
