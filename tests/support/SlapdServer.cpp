#include "tests/support/SlapdServer.h"
#include "server/TCPClient.h"
#include "tests/support/LoopbackListener.h"
#include "tests/support/ServerProcess.h"

#include <cerrno>
#include <chrono>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace varnoth::test {

namespace {

constexpr const char* slapdPath = "/usr/sbin/slapd";
constexpr const char* slapaddPath = "/usr/sbin/slapadd";
} // namespace

std::string SlapdServer::serviceConnectionPoint(const std::string& name,
                                                const std::vector<std::string>& hosts) {
    std::string entry = "dn: cn=" + name + "," + baseDN +
                        "\nobjectClass: serviceConnectionPoint\ncn: " + name +
                        "\nkeywords: 5d0c7a2e-3f41-4b8e-9a6d-1c2e7f9b0a31\nkeywords: Signature Server\n";
    for (const auto& host : hosts) {
        entry += "serviceDNSName: " + host + "\n";
    }
    return entry + "\n";
}

SlapdServer::SlapdServer(Options options) : options_(std::move(options)) {
    try {
        folder_ = makeTemporaryFolder("varnoth-slapd");
    } catch (const std::exception&) {
        // start() reports it
    }
}

SlapdServer::~SlapdServer() {
    stop();
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

// Writes the configuration and the entries and loads them with slapadd.
bool SlapdServer::load() {
    const std::string folder = folder_.string();
    std::string config = std::string("include ") + VARNOTH_SLAPD_SCHEMA +
                         "\nmodulepath /usr/lib/ldap\nmoduleload back_mdb\n" + "moduleload sssvlv\npidfile " +
                         folder + "/slapd.pid\nargsfile " + folder + "/slapd.args\n";
    if (!options_.defaultNamingContext.empty()) {
        config += "rootDSE " + folder + "/rootdse.ldif\n";
    }
    // SASL names of DIGEST-MD5 binds, with or without a realm, map to the account of that name.
    config += std::string("authz-regexp \"uid=([^,]*),cn=digest-md5,cn=auth\" \"cn=$1,") + baseDN + "\"\n" +
              "authz-regexp \"uid=([^,]*),cn=[^,]*,cn=digest-md5,cn=auth\" \"cn=$1," + baseDN + "\"\n" +
              "access to dn.base=\"\" by * read\naccess to dn.base=\"cn=Subschema\" by * read\n" +
              "access to attrs=userPassword by anonymous auth by * none\n" +
              "access to * by users read by anonymous " + (options_.anonymousRead ? "read" : "none") +
              "\ndatabase mdb\nsuffix \"" + baseDN + "\"\nrootdn \"" + adminDN + "\"\nrootpw " +
              adminPassword + "\ndirectory " + folder + "/db\nmaxsize 10485760\ndbnosync\noverlay sssvlv\n";
    const std::string entries = std::string("dn: ") + baseDN +
                                "\nobjectClass: domain\ndc: example\n\ndn: " + bindDN +
                                "\nobjectClass: directoryAccount\ncn: " + bindName +
                                "\nuserPassword: " + bindPassword + "\n\n" + options_.entries;
    std::filesystem::create_directories(folder_ / "db");
    if (!writeWholeFile(folder_ / "slapd.conf", config) ||
        !writeWholeFile(folder_ / "rootdse.ldif",
                        "dn:\ndefaultNamingContext: " + options_.defaultNamingContext + "\n") ||
        !writeWholeFile(folder_ / "data.ldif", entries)) {
        error_ = "cannot write the configuration in " + folder;
        return false;
    }
    const pid_t loader =
        spawnChild({slapaddPath, "-q", "-f", folder + "/slapd.conf", "-l", folder + "/data.ldif"},
                   folder_ / "slapd.out");
    int status = -1;
    while (loader > 0 && waitpid(loader, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        error_ = "slapadd failed: " + readWholeFile(folder_ / "slapd.out");
        return false;
    }
    return loaded_ = true;
}

bool SlapdServer::start() {
    error_.clear();
    if (running()) {
        return true;
    }
    if (folder_.empty() || access(slapdPath, X_OK) != 0 || access(slapaddPath, X_OK) != 0) {
        error_ = "slapd is not installed";
        return false;
    }
    if (!loaded_ && !load()) {
        return false;
    }
    // The port is free when chosen but another process may take it first: try a few.
    for (int attempt = 0; attempt < 3; ++attempt) {
        port_ = LoopbackListener::closedPort();
        pid_ = spawnChild({slapdPath, "-d", "0", "-h", url() + "/", "-f", (folder_ / "slapd.conf").string()},
                          folder_ / "slapd.out");
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
        while (pid_ > 0 && std::chrono::steady_clock::now() < deadline) {
            if (waitpid(pid_, nullptr, WNOHANG) == pid_) {
                pid_ = -1; // slapd gave up, most likely on a port taken in the meantime
            } else if (!TCPClient("127.0.0.1", port_).connect(1)) {
                return true;
            } else {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
        }
        stop();
    }
    error_ = "slapd did not start: " + readWholeFile(folder_ / "slapd.out");
    return false;
}

void SlapdServer::stop() {
    if (pid_ > 0) {
        stopChild(pid_, 5);
    }
    pid_ = -1;
}

} // namespace varnoth::test
