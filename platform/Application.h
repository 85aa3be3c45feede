#pragma once

namespace varnoth {

// The running application as the desktop sees it.
class Application {
public:
    virtual ~Application() = default;
    // Brings the agent's windows to the front, ignoring other applications.
    virtual void activate() = 0;
    // The platform's standard About panel, filled from the bundle's information.
    virtual void showAbout() = 0;
    // Ends the process through the platform's termination, which reports applicationWillTerminate.
    virtual void terminate() = 0;
};

} // namespace varnoth
