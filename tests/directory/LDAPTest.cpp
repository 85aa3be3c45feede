#include "directory/LDAP.h"
#include "tests/support/LoopbackListener.h"
#include "tests/support/SlapdServer.h"

#include <chrono>
#include <future>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <thread>

// Cyrus SASL's DIGEST-MD5 plugin never frees the ciphers it fetches from OpenSSL; libcrypto has no
// frame pointers, so the reported stacks end there. Nothing else in these tests uses libcrypto.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libcrypto.so\n";
}

namespace varnoth {
namespace {

using test::SlapdServer;
using Login = LDAP::Login;
using Scope = LDAP::Scope;
using List = std::vector<std::string>;

std::string account(const std::string& name, const std::string& attributes) {
    return "dn: cn=" + name + ",dc=example,dc=com\nobjectClass: directoryAccount\ncn: " + name + "\n" +
           attributes + "\n";
}

// Neither the stored order nor the order of the names is the order of the display names. The Latin-1 entry
// holds "Grüße" as raw ISO-8859-1 bytes, the way a directory with that code page stores it.
const std::string testEntries =
    account("one", "displayName: Charlie\ndescription: only value\n") +
    account("two", "displayName: alpha\ndescription: first\ndescription: second\n") +
    account("three", "displayName: Bravo\n") + account("latin", "rawName:: R3L832U=\n");

std::shared_ptr<Login> agentLogin(std::string password = SlapdServer::bindPassword) {
    return std::make_shared<Login>(SlapdServer::bindDN, std::move(password));
}

std::shared_ptr<Login> adminLogin() {
    return std::make_shared<Login>(SlapdServer::adminDN, SlapdServer::adminPassword);
}

// The message a call throws, or "" when it does not throw.
template <typename Call> std::string thrownText(Call call) {
    try {
        call();
    } catch (const LDAP::Exception& error) {
        return error.text();
    }
    return "";
}

class LDAPTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        server = std::make_unique<SlapdServer>(SlapdServer::Options{.entries = testEntries});
        server->start();
    }
    static void TearDownTestSuite() { server.reset(); }
    void SetUp() override { ASSERT_TRUE(server->running()) << server->error(); }

    static inline std::unique_ptr<SlapdServer> server;
};

TEST_F(LDAPTest, BindsAndTheirErrors) {
    EXPECT_NO_THROW(LDAP(server->url(), agentLogin()));
    EXPECT_NO_THROW(LDAP(server->url(), std::make_shared<Login>("", ""))); // anonymous
    EXPECT_EQ(thrownText([&] { LDAP(server->url(), agentLogin("wrong")); }), "Invalid credentials");
    // A DN without a password is sent as such; this server refuses unauthenticated binds.
    EXPECT_EQ(thrownText([&] { LDAP(server->url(), agentLogin("")); }), "Server is unwilling to perform");
    LDAP directory(server->url());
    EXPECT_EQ(thrownText([&] { directory.login(nullptr); }), "LOGIN DATA NOT AVAILABLE");

    // DIGEST-MD5 asks for the authentication name and the password through the interaction.
    auto digest = std::make_shared<Login>(SlapdServer::bindName, "", SlapdServer::bindPassword, "",
                                          LDAP::AuthType::DIGEST);
    EXPECT_NO_THROW(directory.login(digest));
    EXPECT_GE(digest->trashcan.size(), 2u);
    EXPECT_EQ(directory.search(SlapdServer::bindDN, "(objectclass=*)", Scope::BASE, {"cn"})
                  .count(SlapdServer::bindDN),
              1u);
    auto wrongDigest =
        std::make_shared<Login>(SlapdServer::bindName, "", "wrong", "", LDAP::AuthType::DIGEST);
    EXPECT_EQ(thrownText([&] { LDAP(server->url()).login(wrongDigest); }), "Invalid credentials");

    // Refused before any request: the URL's port has no listener and yet the error is the mechanism.
    auto other = std::make_shared<Login>("name", "", "secret", "", LDAP::AuthType::OTHER);
    EXPECT_EQ(thrownText([&] { LDAP("ldap://127.0.0.1:1", other); }), "UNSUPPORTED MECHANISMS");
    EXPECT_EQ(thrownText([&] { LDAP("nonsense://x", nullptr); }), "Bad parameter to an ldap routine");
    EXPECT_EQ(thrownText([&] { LDAP("ldap://127.0.0.1:1", agentLogin()); }), "Can't contact LDAP server");
    // The session is only opened by the first request.
    LDAP unbound("ldap://127.0.0.1:1");
    EXPECT_EQ(thrownText([&] { unbound.search("", "(objectclass=*)", Scope::BASE); }),
              "Can't contact LDAP server");
    EXPECT_THROW(LDAP(server->url(), nullptr, Iconv::CodePage::UTF_8_MAC), Iconv::Exception);
}

TEST_F(LDAPTest, SearchResultsBecomeMapsOfTextInTheServersSortOrder) {
    LDAP directory(server->url(), agentLogin());
    EXPECT_EQ(directory.search("", "(objectclass=*)", Scope::BASE, {"defaultNamingContext"}),
              (LDAP::Entries{{"", {{"defaultNamingContext", std::string(SlapdServer::baseDN)}}}}));

    // Only the attributes asked for; several values become a list.
    const auto people = directory.search(SlapdServer::baseDN, "(displayName=*)", Scope::SUBTREE,
                                         {"description", "displayName"});
    EXPECT_EQ(people,
              (LDAP::Entries{
                  {"cn=one,dc=example,dc=com", {{"displayName", "Charlie"}, {"description", "only value"}}},
                  {"cn=two,dc=example,dc=com",
                   {{"displayName", "alpha"}, {"description", List{"first", "second"}}}},
                  {"cn=three,dc=example,dc=com", {{"displayName", "Bravo"}}},
              }));
    // No attribute list: every user attribute.
    EXPECT_EQ(
        directory.search("cn=three,dc=example,dc=com", "(objectclass=*)", Scope::BASE),
        (LDAP::Entries{{"cn=three,dc=example,dc=com",
                        {{"objectClass", "directoryAccount"}, {"cn", "three"}, {"displayName", "Bravo"}}}}));

    // Case-insensitive order, which a byte-wise sort ("Bravo", "Charlie", "alpha") would not give.
    const List sorted{"cn=two,dc=example,dc=com", "cn=three,dc=example,dc=com", "cn=one,dc=example,dc=com"};
    for (const auto& [sortKey, order] : {std::pair("displayName", sorted),
                                         std::pair("-displayName", List(sorted.rbegin(), sorted.rend()))}) {
        directory.search(SlapdServer::baseDN, "(displayName=*)", Scope::SINGLE_LEVEL, {"displayName"},
                         sortKey);
        EXPECT_EQ(directory.lastResult().errCode, 0);
        EXPECT_EQ(directory.lastEntryNames(), order) << sortKey;
    }

    // A missing base is an error of the final result, not of the call.
    EXPECT_TRUE(directory.search("cn=nobody,dc=example,dc=com", "(objectclass=*)", Scope::SUBTREE).empty());
    EXPECT_EQ(directory.lastResult().errCode, 32);
    EXPECT_EQ(directory.lastResult().matched, SlapdServer::baseDN);
    EXPECT_EQ(thrownText([&] { directory.search(SlapdServer::baseDN, "(broken", Scope::SUBTREE); }),
              "Bad search filter");
}

TEST_F(LDAPTest, AddModifyAndRemoveThroughACodePage) {
    const auto attributes = [](LDAP& directory, const std::string& dn) {
        const auto found = directory.search(dn, "(objectclass=*)", Scope::BASE, {"rawName", "description"});
        return found.empty() ? LDAP::Attributes{} : found.at(dn);
    };
    LDAP utf8(server->url(), agentLogin());
    LDAP latin1(server->url(), agentLogin(), Iconv::CodePage::ISO_8859_1);
    EXPECT_EQ(attributes(utf8, "cn=latin,dc=example,dc=com").at("rawName"), LDAP::Value(""))
        << "Latin-1 is not UTF-8";
    EXPECT_EQ(attributes(latin1, "cn=latin,dc=example,dc=com").at("rawName"), LDAP::Value("Grüße"));

    // Written through a Latin-1 client, stored as Latin-1 bytes.
    LDAP admin(server->url(), adminLogin(), Iconv::CodePage::ISO_8859_1);
    const std::string dn = "cn=written,dc=example,dc=com";
    const LDAP::Modifications entry = {{"objectClass", {"directoryAccount"}},
                                       {"cn", {"written"}},
                                       {"rawName", {"Straße"}},
                                       {"description", {"x"}}};
    admin.add(dn, entry);
    EXPECT_EQ(thrownText([&] { admin.add(dn, entry); }), "Already exists");
    EXPECT_EQ(attributes(latin1, dn).at("rawName"), LDAP::Value("Straße"));
    EXPECT_EQ(attributes(utf8, dn).at("rawName"), LDAP::Value(""));

    admin.modify(dn, {{"description", {"a", "b"}}}); // replaces the value
    EXPECT_EQ(attributes(utf8, dn).at("description"), LDAP::Value(List{"a", "b"}));
    EXPECT_EQ(thrownText([&] { utf8.remove(dn); }), "Insufficient access"); // the bind account may only read
    admin.remove(dn);
    EXPECT_TRUE(attributes(admin, dn).empty());
    EXPECT_EQ(thrownText([&] { admin.remove(dn); }), "No such object");
}

TEST_F(LDAPTest, AsynchronousVariantsRunOnTheObjectsOwnThread) {
    LDAP directory(server->url());
    const auto outcome = [&](auto start) {
        std::promise<std::optional<std::string>> done;
        start([&](std::optional<std::string> error) { done.set_value(error); });
        return done.get_future().get();
    };
    EXPECT_EQ(outcome([&](auto completion) { directory.loginAsync(agentLogin("wrong"), completion); }),
              "LOGIN FAILED: message(\"Invalid credentials\")");
    EXPECT_EQ(outcome([&](auto completion) { directory.loginAsync(agentLogin(), completion); }),
              std::nullopt);

    std::promise<std::pair<LDAP::Entries, std::thread::id>> searched;
    directory.searchAsync(SlapdServer::baseDN, "(cn=two)", Scope::SUBTREE, {"cn"}, "",
                          [&](LDAP::Entries entries, std::optional<std::string> error) {
                              EXPECT_EQ(error, std::nullopt);
                              searched.set_value({std::move(entries), std::this_thread::get_id()});
                          });
    const auto [entries, thread] = searched.get_future().get();
    EXPECT_EQ(entries.count("cn=two,dc=example,dc=com"), 1u);
    EXPECT_NE(thread, std::this_thread::get_id());
    EXPECT_EQ(
        outcome([&](auto completion) { directory.removeAsync("cn=two,dc=example,dc=com", completion); }),
        "message(\"Insufficient access\")");
}

// Peers that accept and then misbehave: every operation ends at its limit or sooner, with next to no
// processor time (libldap's TLS handshake used to spin on a silent peer for as long as it stayed).
TEST(LDAPMisbehavingPeer, EveryOperationEndsWithinItsLimitWithoutSpinning) {
    enum class Peer { silent, garbage, closing, trickling };
    const LDAP::Limits limits{std::chrono::seconds(1), std::chrono::seconds(1)};
    for (const char* scheme : {"ldap", "ldaps"}) {
        for (const Peer peer : {Peer::silent, Peer::garbage, Peer::closing, Peer::trickling}) {
            SCOPED_TRACE(std::string(scheme) + " peer " + std::to_string(static_cast<int>(peer)));
            test::LoopbackListener listener;
            std::string received;
            std::thread server([&] {
                const int socket = listener.accept();
                const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(3);
                if (peer == Peer::garbage) {
                    ::send(socket, "\x16\x03\x01\x00\x05garbage\r\n", 15, MSG_NOSIGNAL);
                }
                for (char byte; peer != Peer::closing && std::chrono::steady_clock::now() < until;) {
                    pollfd entry{socket, POLLIN, 0};
                    if (::poll(&entry, 1, 100) > 0) {
                        if (::recv(socket, &byte, 1, 0) != 1) {
                            break; // the client gave up
                        }
                        received += byte;
                    }
                    if (peer == Peer::trickling) {
                        ::send(socket, "\x30", 1, MSG_NOSIGNAL);
                    }
                }
                ::close(socket);
            });
            rusage before{}, after{};
            getrusage(RUSAGE_THREAD, &before);
            const auto started = std::chrono::steady_clock::now();
            const std::string url = std::string(scheme) + "://127.0.0.1:" + std::to_string(listener.port());
            const std::string error = thrownText([&] {
                LDAP(url, nullptr, Iconv::CodePage::UTF8, limits).search("", "(objectclass=*)", Scope::BASE);
            });
            const auto took = std::chrono::steady_clock::now() - started;
            getrusage(RUSAGE_THREAD, &after);
            server.join();
            EXPECT_NE(error, "");
            EXPECT_LT(took, std::chrono::milliseconds(2500));
            const auto cpu = [](const rusage& usage) {
                return std::chrono::seconds(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                       std::chrono::microseconds(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
            };
            EXPECT_LT(cpu(after) - cpu(before), std::chrono::milliseconds(150));
            if (std::string(scheme) == "ldap" && peer == Peer::silent) {
                // The search asked for no server-side time limit: size limit 0, then time limit 0.
                EXPECT_EQ(error, "Timed out");
                EXPECT_NE(received.find(std::string("\x02\x01\x00\x02\x01\x00\x01\x01\x00", 9)),
                          std::string::npos);
            }
        }
    }
}

} // namespace
} // namespace varnoth
