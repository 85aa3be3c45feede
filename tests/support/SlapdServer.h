#pragma once

#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

namespace varnoth::test {

// A real OpenLDAP directory for tests: slapd, unprivileged, from a temporary folder, listening on a
// free loopback port only. The tree below baseDN holds the bind account and whatever entries the
// test adds; the root entry publishes defaultNamingContext, and the server sorts on request.
// The destructor stops slapd and removes the folder.
class SlapdServer {
public:
    static constexpr const char* baseDN = "dc=example,dc=com";
    static constexpr const char* bindDN = "cn=agent,dc=example,dc=com";
    static constexpr const char* bindName = "agent"; // the SASL authentication name of bindDN
    static constexpr const char* bindPassword = "Dir3ctory-Secr3t-8817";
    static constexpr const char* adminDN = "cn=admin,dc=example,dc=com";
    static constexpr const char* adminPassword = "Adm1n-Secr3t-2290";

    struct Options {
        // When false, only bound users read below the base; the root entry stays public.
        bool anonymousRead = true;
        // Published on the root entry; empty publishes none.
        std::string defaultNamingContext = baseDN;
        // Further LDIF entries, loaded before the start.
        std::string entries;
    };

    // An LDIF entry of a service connection point below the base carrying the signature server's
    // keyword and the host names.
    static std::string serviceConnectionPoint(const std::string& name, const std::vector<std::string>& hosts);

    explicit SlapdServer(Options options);
    ~SlapdServer();
    SlapdServer(const SlapdServer&) = delete;
    SlapdServer& operator=(const SlapdServer&) = delete;

    // Writes the configuration, loads the entries and starts slapd; false with the reason in error().
    bool start();
    // Stops slapd (terminate, then kill) and waits for it; the data stays for a restart.
    void stop();
    bool running() const { return pid_ > 0; }

    int port() const { return port_; }
    std::string url() const { return "ldap://127.0.0.1:" + std::to_string(port_); }
    const std::string& error() const { return error_; }

private:
    bool load();

    Options options_;
    std::filesystem::path folder_;
    bool loaded_ = false;
    int port_ = 0;
    pid_t pid_ = -1;
    std::string error_;
};

} // namespace varnoth::test
