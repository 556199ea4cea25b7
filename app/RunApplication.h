#pragma once

#include <memory>

namespace glintmark::platform {
class Application;
}  // namespace glintmark::platform

namespace glintmark {

class AppDelegate;

/// Makes `application` an accessory, gives it the program's one delegate and runs its event loop.
/// Returns the delegate once the loop has ended. Call it once, on the main thread.
std::shared_ptr<AppDelegate> runApplication(platform::Application& application);

}  // namespace glintmark
