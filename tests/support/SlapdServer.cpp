#include "tests/support/SlapdServer.h"
#include "server/TCPClient.h"
#include "tests/support/LoopbackListener.h"
#include "tests/support/ServerProcess.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace varnoth::test {

namespace {

constexpr const char* slapdPath = "/usr/sbin/slapd";
constexpr const char* slapaddPath = "/usr/sbin/slapadd";
constexpr const char* modulePath = "/usr/lib/ldap";

// Just what the tests need, so that nothing is read from the system's schema folder. The
// serviceConnectionPoint class and its attributes keep the OIDs they have in Active Directory.
constexpr const char* schema = R"(
attributetype ( 0.9.2342.19200300.100.1.25 NAME ( 'dc' 'domainComponent' )
  EQUALITY caseIgnoreIA5Match SUBSTR caseIgnoreIA5SubstringsMatch
  SYNTAX 1.3.6.1.4.1.1466.115.121.1.26 SINGLE-VALUE )
attributetype ( 2.16.840.1.113730.3.1.241 NAME 'displayName'
  EQUALITY caseIgnoreMatch ORDERING caseIgnoreOrderingMatch SUBSTR caseIgnoreSubstringsMatch
  SYNTAX 1.3.6.1.4.1.1466.115.121.1.15 )
attributetype ( 1.2.840.113556.1.4.48 NAME 'keywords'
  EQUALITY caseIgnoreMatch SUBSTR caseIgnoreSubstringsMatch SYNTAX 1.3.6.1.4.1.1466.115.121.1.15 )
attributetype ( 1.2.840.113556.1.4.657 NAME 'serviceDNSName'
  EQUALITY caseIgnoreMatch SYNTAX 1.3.6.1.4.1.1466.115.121.1.15 )
attributetype ( 1.3.6.1.4.1.55555.1.1 NAME 'defaultNamingContext'
  EQUALITY distinguishedNameMatch SYNTAX 1.3.6.1.4.1.1466.115.121.1.12 SINGLE-VALUE )
attributetype ( 1.3.6.1.4.1.55555.1.2 NAME 'rawName'
  EQUALITY octetStringMatch SYNTAX 1.3.6.1.4.1.1466.115.121.1.40 )
objectclass ( 0.9.2342.19200300.100.4.13 NAME 'domain' SUP top STRUCTURAL MUST dc MAY description )
objectclass ( 1.2.840.113556.1.5.126 NAME 'serviceConnectionPoint' SUP top STRUCTURAL
  MUST cn MAY ( keywords $ serviceDNSName $ description ) )
objectclass ( 1.3.6.1.4.1.55555.2.1 NAME 'directoryAccount' SUP top STRUCTURAL
  MUST cn MAY ( userPassword $ description $ displayName $ rawName ) )
)";

// Starts a program with its output appended to a file; the child dies with the test process.
pid_t spawn(const std::vector<std::string>& arguments, const std::filesystem::path& output) {
    std::vector<char*> argv;
    for (const auto& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    const std::string outputPath = output.string();
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int in = open("/dev/null", O_RDONLY);
        const int out = open(outputPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        if (in >= 0) {
            dup2(in, STDIN_FILENO);
        }
        if (out >= 0) {
            dup2(out, STDOUT_FILENO);
            dup2(out, STDERR_FILENO);
        }
        execv(argv[0], argv.data());
        _exit(127);
    }
    return pid;
}

int waitForExit(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool writeText(const std::filesystem::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    return static_cast<bool>(out);
}

} // namespace

bool SlapdServer::available() {
    return access(slapdPath, X_OK) == 0 && access(slapaddPath, X_OK) == 0;
}

std::string SlapdServer::serviceConnectionPoint(const std::string& name,
                                                const std::vector<std::string>& hosts) {
    std::string entry = "dn: cn=" + name + "," + baseDN +
                        "\nobjectClass: serviceConnectionPoint\ncn: " + name +
                        "\nkeywords: " + signatureServerGuid + "\nkeywords: Signature Server\n";
    for (const auto& host : hosts) {
        entry += "serviceDNSName: " + host + "\n";
    }
    return entry + "\n";
}

SlapdServer::SlapdServer() : SlapdServer(Options{}) {}

SlapdServer::SlapdServer(Options options) : options_(std::move(options)) {
    char pattern[] = "/tmp/varnoth-slapd-XXXXXX";
    if (mkdtemp(pattern) != nullptr) {
        folder_ = pattern;
    }
}

SlapdServer::~SlapdServer() {
    stop();
    if (!folder_.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
}

std::string SlapdServer::url() const {
    return "ldap://127.0.0.1:" + std::to_string(port_);
}

bool SlapdServer::writeFiles() {
    const std::string folder = folder_.string();
    std::filesystem::create_directories(folder_ / "db");
    const std::string everyoneBelowBase =
        options_.anonymousRead ? "by users read by anonymous read" : "by users read by anonymous none";
    std::ostringstream config;
    config << "include " << folder << "/schema\n"
           << "modulepath " << modulePath << "\n"
           << "moduleload back_mdb\n"
           << "moduleload sssvlv\n"
           << "pidfile " << folder << "/slapd.pid\n"
           << "argsfile " << folder << "/slapd.args\n";
    if (!options_.defaultNamingContext.empty()) {
        config << "rootDSE " << folder << "/rootdse.ldif\n";
    }
    // SASL names of DIGEST-MD5 binds, with or without a realm, map to the account of that name.
    config << "authz-regexp \"uid=([^,]*),cn=digest-md5,cn=auth\" \"cn=$1," << baseDN << "\"\n"
           << "authz-regexp \"uid=([^,]*),cn=[^,]*,cn=digest-md5,cn=auth\" \"cn=$1," << baseDN << "\"\n"
           << "access to dn.base=\"\" by * read\n"
           << "access to dn.base=\"cn=Subschema\" by * read\n"
           << "access to attrs=userPassword by anonymous auth by * none\n"
           << "access to * " << everyoneBelowBase << "\n"
           << "database mdb\n"
           << "suffix \"" << baseDN << "\"\n"
           << "rootdn \"" << adminDN << "\"\n"
           << "rootpw " << adminPassword << "\n"
           << "directory " << folder << "/db\n"
           << "maxsize 10485760\n"
           << "dbnosync\n"
           << "overlay sssvlv\n";
    const std::string base = std::string("dn: ") + baseDN + "\nobjectClass: domain\ndc: example\n\n" +
                             "dn: " + bindDN + "\nobjectClass: directoryAccount\ncn: " + bindName +
                             "\nuserPassword: " + bindPassword + "\n\n";
    return writeText(folder_ / "schema", schema) && writeText(folder_ / "slapd.conf", config.str()) &&
           writeText(folder_ / "rootdse.ldif",
                     "dn:\ndefaultNamingContext: " + options_.defaultNamingContext + "\n") &&
           writeText(folder_ / "data.ldif", base + options_.entries);
}

bool SlapdServer::waitUntilListening() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
    while (std::chrono::steady_clock::now() < deadline) {
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            return false;
        }
        if (!TCPClient("127.0.0.1", port_).connect(1)) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    stop();
    return false;
}

bool SlapdServer::start() {
    error_.clear();
    if (running()) {
        return true;
    }
    if (folder_.empty() || !available()) {
        error_ = "slapd is not installed";
        return false;
    }
    if (!loaded_) {
        if (!writeFiles()) {
            error_ = "cannot write the configuration in " + folder_.string();
            return false;
        }
        const pid_t loader = spawn({slapaddPath, "-q", "-f", (folder_ / "slapd.conf").string(), "-l",
                                    (folder_ / "data.ldif").string()},
                                   folder_ / "slapd.out");
        if (loader < 0 || waitForExit(loader) != 0) {
            error_ = "slapadd failed: " + readWholeFile(folder_ / "slapd.out");
            return false;
        }
        loaded_ = true;
    }
    // The port is free when chosen but another process may take it first: try a few.
    for (int attempt = 0; attempt < 3; ++attempt) {
        port_ = LoopbackListener::closedPort();
        pid_ = spawn({slapdPath, "-d", "0", "-h", url() + "/", "-f", (folder_ / "slapd.conf").string()},
                     folder_ / "slapd.out");
        if (pid_ > 0 && waitUntilListening()) {
            return true;
        }
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
