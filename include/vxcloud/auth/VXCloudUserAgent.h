#pragma once
// Shows a service's sign-in page to the person. On a desktop that is the system browser;
// on a machine without one the address is printed, opened elsewhere, and the address the
// browser ends on is pasted back (VXCloudAuthManager::handleRedirectURL).
#include <iosfwd>
#include <memory>
#include <string>

namespace vxcloud {

class VXCloudUserAgent {
public:
    virtual ~VXCloudUserAgent();

    // Presents the sign-in page at `url`; false when it could not be shown. Called once
    // per sign-in on the thread that asked to authorise, with no lock of the component
    // held: an implementation may complete the sign-in before it returns.
    virtual bool open(const std::string& url) = 0;

    // The desktop's browser (xdg-open). Fails without a graphical session.
    static std::shared_ptr<VXCloudUserAgent> systemBrowser();
    // Writes the address to `out` for the person to open; `out` must outlive the agent.
    static std::shared_ptr<VXCloudUserAgent> printing(std::ostream& out);
    // The browser, and the printed address when the browser cannot be started.
    static std::shared_ptr<VXCloudUserAgent> browserOrPrinting(std::ostream& out);
};

}  // namespace vxcloud
