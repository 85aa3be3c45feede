#pragma once

namespace varnoth {

// The agent's own entry that the desktop starts at the user's next login. Each operation writes its
// own "Error: ..." log line when it fails and answers false; nothing is thrown.
class LoginItem {
public:
    virtual ~LoginItem() = default;

    // Whether the next login starts this agent's executable through the entry.
    virtual bool isInstalled() = 0;
    // Writes (or rewrites) the entry for the current executable.
    virtual bool install() = 0;
    // Deletes the entry; true as well when there was none.
    virtual bool remove() = 0;
    // Whether an entry for every user (the installer package's) starts the agent at login, so that
    // this user's own is not needed.
    virtual bool isProvidedBySystem() = 0;
};

} // namespace varnoth
