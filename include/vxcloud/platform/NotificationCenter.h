#pragma once
// The default notification centre: observers register for a name and get a token that
// removes them; posts reach each observer on the queue it asked for.
#include <any>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "vxcloud/platform/Json.h"

namespace vxcloud {

class DispatchQueue;

struct Notification {
    std::string name;
    // The posting object (a task, a screen, the auth manager), or null.
    std::shared_ptr<void> sender;
    // JSON user-info (upload status, auth result dictionary, account dictionaries).
    JsonBox userInfo;
    // User-info entries that are not JSON values (for example a typed auth result).
    std::map<std::string, std::any> objects;
};

class NotificationCenter {
public:
    class Token;  // keeps nothing alive; removing twice is harmless
    using ObserverToken = std::shared_ptr<Token>;
    using Handler = std::function<void(const Notification&)>;

    static NotificationCenter& defaultCenter();

    NotificationCenter();
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    // An empty name observes every notification. A null queue delivers synchronously on
    // the posting thread.
    ObserverToken addObserver(std::string name, std::shared_ptr<DispatchQueue> queue,
                              Handler handler);
    // After removeObserver returns, the handler is not called again, and is not running
    // on another thread (unless it is the caller's own thread, i.e. a handler removing
    // itself).
    void removeObserver(const ObserverToken& token);
    void post(Notification notification);
    void post(std::string name, std::shared_ptr<void> sender, JsonBox userInfo = {});

    struct State;

private:
    std::shared_ptr<State> state_;
};

}  // namespace vxcloud
