#include "directory/LDAP.h"
#include "tests/directory/SlapdServer.h"

#include <arpa/inet.h>
#include <chrono>
#include <future>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

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

// Neither the stored order nor the order of the names is the order of the display names. The Latin-1 entry
// holds "Grüße" as raw ISO-8859-1 bytes, the way a directory with that code page stores it.
const std::string testEntries = R"(dn: cn=one,dc=example,dc=com
objectClass: directoryAccount
cn: one
displayName: Charlie
description: only value

dn: cn=two,dc=example,dc=com
objectClass: directoryAccount
cn: two
displayName: alpha
description: first
description: second

dn: cn=three,dc=example,dc=com
objectClass: directoryAccount
cn: three
displayName: Bravo

dn: cn=latin,dc=example,dc=com
objectClass: directoryAccount
cn: latin
rawName:: R3L832U=

)";

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
        SlapdServer::Options options;
        options.entries = testEntries;
        server = new SlapdServer(options);
        if (!server->start()) {
            startError = server->error();
        }
    }
    static void TearDownTestSuite() {
        delete server;
        server = nullptr;
    }
    void SetUp() override { ASSERT_TRUE(server->running()) << startError; }

    static inline SlapdServer* server = nullptr;
    static inline std::string startError;
};

TEST_F(LDAPTest, SimpleAndSaslBinds) {
    EXPECT_NO_THROW(LDAP(server->url(), agentLogin()));
    // Anonymous: an empty DN with empty credentials.
    EXPECT_NO_THROW(LDAP(server->url(), std::make_shared<Login>("", "")));

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
    const auto bound = directory.search(SlapdServer::bindDN, "(objectclass=*)", Scope::BASE, {"cn"});
    EXPECT_EQ(bound.count(SlapdServer::bindDN), 1u);

    auto wrongDigest =
        std::make_shared<Login>(SlapdServer::bindName, "", "wrong", "", LDAP::AuthType::DIGEST);
    EXPECT_EQ(thrownText([&] { LDAP(server->url()).login(wrongDigest); }), "Invalid credentials");
}

TEST_F(LDAPTest, ErrorsAndTheirPrintedForm) {
    // Refused before any request: the URL's port has no listener and yet the error is the mechanism.
    auto other = std::make_shared<Login>("name", "", "secret", "", LDAP::AuthType::OTHER);
    EXPECT_EQ(thrownText([&] { LDAP("ldap://127.0.0.1:1", other); }), "UNSUPPORTED MECHANISMS");

    EXPECT_EQ(thrownText([&] { LDAP("nonsense://x", nullptr); }), "Bad parameter to an ldap routine");

    try {
        LDAP("ldap://127.0.0.1:1", agentLogin());
        FAIL() << "a closed port must fail";
    } catch (const LDAP::Exception& error) {
        EXPECT_EQ(error.text(), "Can't contact LDAP server");
        EXPECT_STREQ(error.what(), "message(\"Can't contact LDAP server\")");
    }
    // The session is only opened by the first request.
    LDAP unbound("ldap://127.0.0.1:1");
    EXPECT_EQ(thrownText([&] { unbound.search("", "(objectclass=*)", Scope::BASE); }),
              "Can't contact LDAP server");

    EXPECT_THROW(LDAP(server->url(), nullptr, Iconv::CodePage::UTF_8_MAC), Iconv::Exception);
    EXPECT_EQ(LDAP::mechanismName(LDAP::AuthType::SPNEGO), "GSS-SPNEGO");
}

TEST_F(LDAPTest, SearchResultsBecomeMapsOfText) {
    LDAP directory(server->url(), agentLogin());

    const auto root = directory.search("", "(objectclass=*)", Scope::BASE, {"defaultNamingContext"});
    ASSERT_EQ(root.size(), 1u);
    ASSERT_EQ(root.count(""), 1u);
    EXPECT_EQ(root.at("").at("defaultNamingContext"), LDAP::Value(std::string(SlapdServer::baseDN)));

    const auto people = directory.search(SlapdServer::baseDN, "(displayName=*)", Scope::SUBTREE,
                                         {"description", "displayName"});
    ASSERT_EQ(people.size(), 3u);
    const auto& two = people.at("cn=two,dc=example,dc=com");
    EXPECT_EQ(two.at("description"), LDAP::Value(List{"first", "second"}));
    EXPECT_EQ(two.at("displayName"), LDAP::Value(std::string("alpha")));
    EXPECT_EQ(two.size(), 2u) << "only the attributes asked for";
    EXPECT_EQ(people.at("cn=three,dc=example,dc=com").count("description"), 0u);

    // No attribute list: every user attribute.
    const auto all = directory.search("cn=one,dc=example,dc=com", "(objectclass=*)", Scope::BASE);
    const auto& one = all.at("cn=one,dc=example,dc=com");
    EXPECT_EQ(one.at("cn"), LDAP::Value(std::string("one")));
    EXPECT_EQ(one.at("objectClass"), LDAP::Value(std::string("directoryAccount")));
    EXPECT_EQ(one.at("description"), LDAP::Value(std::string("only value")));

    // A missing base is an error of the final result, not of the call.
    EXPECT_TRUE(directory.search("cn=nobody,dc=example,dc=com", "(objectclass=*)", Scope::SUBTREE).empty());
    EXPECT_EQ(directory.lastResult().errCode, 32);
    EXPECT_EQ(directory.lastResult().matched, SlapdServer::baseDN);

    EXPECT_EQ(thrownText([&] { directory.search(SlapdServer::baseDN, "(broken", Scope::SUBTREE); }),
              "Bad search filter");
}

TEST_F(LDAPTest, SortKeyAsksTheServerToSort) {
    LDAP directory(server->url(), agentLogin());
    const auto names = [&](const std::string& sortKey) {
        directory.search(SlapdServer::baseDN, "(displayName=*)", Scope::SINGLE_LEVEL, {"displayName"},
                         sortKey);
        EXPECT_EQ(directory.lastResult().errCode, 0);
        return directory.lastEntryNames();
    };
    // Case-insensitive order, which a byte-wise sort ("Bravo", "Charlie", "alpha") would not give.
    const List sorted{"cn=two,dc=example,dc=com", "cn=three,dc=example,dc=com", "cn=one,dc=example,dc=com"};
    const List reversed(sorted.rbegin(), sorted.rend());
    EXPECT_EQ(names("displayName"), sorted);
    EXPECT_EQ(names("-displayName"), reversed);
}

TEST_F(LDAPTest, CodePageConvertsValuesBothWays) {
    const auto rawName = [](LDAP& directory, const std::string& dn) {
        const auto found = directory.search(dn, "(objectclass=*)", Scope::BASE, {"rawName"});
        return std::get<std::string>(found.at(dn).at("rawName"));
    };
    LDAP utf8(server->url(), agentLogin());
    LDAP latin1(server->url(), agentLogin(), Iconv::CodePage::ISO_8859_1);
    EXPECT_EQ(rawName(utf8, "cn=latin,dc=example,dc=com"), "") << "Latin-1 bytes are not UTF-8";
    EXPECT_EQ(rawName(latin1, "cn=latin,dc=example,dc=com"), "Grüße");

    // Written through a Latin-1 client, stored as Latin-1 bytes.
    LDAP admin(server->url(), adminLogin(), Iconv::CodePage::ISO_8859_1);
    const std::string dn = "cn=written,dc=example,dc=com";
    admin.add(dn, {{"objectClass", {"directoryAccount"}}, {"cn", {"written"}}, {"rawName", {"Straße"}}});
    EXPECT_EQ(rawName(latin1, dn), "Straße");
    EXPECT_EQ(rawName(utf8, dn), "");
    admin.remove(dn);
}

TEST_F(LDAPTest, AddModifyAndRemove) {
    LDAP admin(server->url(), adminLogin());
    const std::string dn = "cn=delta,dc=example,dc=com";
    admin.add(dn, {{"objectClass", {"directoryAccount"}}, {"cn", {"delta"}}, {"description", {"a", "b"}}});
    EXPECT_EQ(thrownText([&] {
                  admin.add(dn, {{"objectClass", {"directoryAccount"}}, {"cn", {"delta"}}});
              }),
              "Already exists");

    admin.modify(dn, {{"description", {"replaced"}}, {"displayName", {"Delta"}}});
    const auto changed = admin.search(dn, "(objectclass=*)", Scope::BASE, {"description", "displayName"});
    EXPECT_EQ(changed.at(dn).at("description"), LDAP::Value(std::string("replaced")));
    EXPECT_EQ(changed.at(dn).at("displayName"), LDAP::Value(std::string("Delta")));

    // The bind account may only read.
    LDAP reader(server->url(), agentLogin());
    EXPECT_EQ(thrownText([&] { reader.remove(dn); }), "Insufficient access");

    admin.remove(dn);
    EXPECT_TRUE(admin.search(dn, "(objectclass=*)", Scope::BASE).empty());
    EXPECT_EQ(thrownText([&] { admin.remove(dn); }), "No such object");
}

TEST_F(LDAPTest, AsynchronousVariantsRunOnTheObjectsOwnThread) {
    LDAP directory(server->url());
    EXPECT_EQ(directory.threadLabel().rfind("ldap.thread.", 0), 0u);
    const auto caller = std::this_thread::get_id();

    std::promise<std::optional<std::string>> failedLogin;
    directory.loginAsync(agentLogin("wrong"),
                         [&](std::optional<std::string> error) { failedLogin.set_value(error); });
    EXPECT_EQ(failedLogin.get_future().get(), "LOGIN FAILED: message(\"Invalid credentials\")");

    std::promise<std::optional<std::string>> login;
    directory.loginAsync(agentLogin(), [&](std::optional<std::string> error) { login.set_value(error); });
    EXPECT_EQ(login.get_future().get(), std::nullopt);

    std::promise<std::pair<LDAP::Entries, std::thread::id>> searched;
    directory.searchAsync(SlapdServer::baseDN, "(cn=two)", Scope::SUBTREE, {"cn"}, "",
                          [&](LDAP::Entries entries, std::optional<std::string> error) {
                              EXPECT_EQ(error, std::nullopt);
                              searched.set_value({std::move(entries), std::this_thread::get_id()});
                          });
    const auto [entries, thread] = searched.get_future().get();
    EXPECT_EQ(entries.count("cn=two,dc=example,dc=com"), 1u);
    EXPECT_NE(thread, caller);

    std::promise<std::optional<std::string>> removed;
    directory.removeAsync("cn=two,dc=example,dc=com",
                          [&](std::optional<std::string> error) { removed.set_value(error); });
    EXPECT_EQ(removed.get_future().get(), "message(\"Insufficient access\")");
}

TEST(LDAPTimeout, SilentDirectoryFailsInsteadOfHanging) {
    // Accepts connections (the kernel completes them) and never answers.
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_GE(listener, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(listen(listener, 4), 0);
    ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length), 0);
    const std::string url = "ldap://127.0.0.1:" + std::to_string(ntohs(address.sin_port));

    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(thrownText([&] { LDAP(url, agentLogin()); }), "Timed out");
    EXPECT_LT(std::chrono::steady_clock::now() - started,
              std::chrono::seconds(3 * LDAP::operationTimeoutSeconds));
    close(listener);
}

} // namespace
} // namespace varnoth
