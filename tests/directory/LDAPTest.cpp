#include "directory/LDAP.h"
#include "tests/support/Golden.h"
#include "tests/support/LoopbackListener.h"
#include "tests/support/SlapdServer.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <future>
#include <gtest/gtest.h>
#include <iterator>
#include <poll.h>
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

std::string account(const std::string& name, const std::string& attributes) {
    return "dn: cn=" + name + ",dc=example,dc=com\nobjectClass: directoryAccount\ncn: " + name + "\n" +
           attributes + "\n";
}

// A login as the cases write it: "-" for none, simple:DN:PASSWORD, or MECHANISM:NAME:PASSWORD for SASL
// (digest, other for one the client does not support).
std::shared_ptr<Login> login(const std::string& written) {
    const auto first = written.find(':'), second = written.find(':', first + 1);
    const std::string kind = written.substr(0, first), name = written.substr(first + 1, second - first - 1);
    const std::string password = second == std::string::npos ? "" : written.substr(second + 1);
    return kind == "-" ? nullptr
           : kind == "simple"
               ? std::make_shared<Login>(name, password)
               : std::make_shared<Login>(name, "", password, "",
                                         kind == "digest" ? LDAP::AuthType::DIGEST : LDAP::AuthType::OTHER);
}

// Entries in the given order of their DNs, then any others by DN; attributes by name, a list in brackets.
std::string shown(const LDAP::Entries& entries, std::vector<std::string> order) {
    for (const auto& [dn, attributes] : std::map(entries.begin(), entries.end())) {
        if (std::find(order.begin(), order.end(), dn) == order.end()) {
            order.push_back(dn);
        }
    }
    std::string text;
    for (const auto& dn : order) {
        text += (text.empty() ? "" : "; ") + (dn.empty() ? "\"\"" : dn) + ":";
        for (const auto& [name, value] : std::map(entries.at(dn).begin(), entries.at(dn).end())) {
            const auto* list = std::get_if<std::vector<std::string>>(&value);
            text += " " + name + "=" + (list ? "[" : std::get<std::string>(value));
            for (std::size_t item = 0; list && item < list->size(); ++item) {
                text += (item ? "," : "") + (*list)[item];
            }
            text += list ? "]" : "";
        }
    }
    return text.empty() ? "nothing" : text;
}

// One slapd for every case. Neither the stored order nor the order of the names is the order of the
// display names. The Latin-1 entry holds "Grüße" as raw ISO-8859-1 bytes, the way a directory with that
// code page stores it.
TEST(LDAPTest, BindsSearchesChangesAndAsynchronousCalls) {
    SlapdServer server(
        {.entries = account("one", "displayName: Charlie\ndescription: only value\n") +
                    account("two", "displayName: alpha\ndescription: first\ndescription: second\n") +
                    account("three", "displayName: Bravo\n") + account("latin", "rawName:: R3L832U=\n")});
    ASSERT_TRUE(server.start()) << server.error();
    std::map<std::string, std::unique_ptr<LDAP>> clients;
    const auto caller = std::this_thread::get_id();
    test::expectTranscript("directory/ldap", [&](const std::string& word, const std::string& rest) {
        std::istringstream words(rest);
        std::vector<std::string> in{std::istream_iterator<std::string>(words), {}};
        LDAP::Modifications changes;
        for (std::size_t at = 2; at < in.size(); ++at) {
            changes[in[at].substr(0, in[at].find('='))].push_back(in[at].substr(in[at].find('=') + 1));
        }
        in.resize(std::max<std::size_t>(in.size(), 5));
        const std::vector<std::string> attributes(in.begin() + 5, in.end());
        const std::string base = in[1] == "\"\"" ? "" : in[1], sortKey = in[4] == "-" ? "" : in[4];
        const Scope scope = in[3] == "base"  ? Scope::BASE
                            : in[3] == "one" ? Scope::SINGLE_LEVEL
                                             : Scope::SUBTREE;
        std::promise<std::string> done;
        const auto finish = [&](std::optional<std::string> error) { done.set_value(error.value_or("ok")); };
        try {
            if (word == "open") {
                clients[in[0]] = std::make_unique<LDAP>(in[1] == "server" ? server.url() : in[1],
                                                        login(in[2]), *Iconv::codePage(in[3]));
                return std::string("ok");
            }
            LDAP& client = *clients.at(in[0]);
            const auto credentials = login(in[1]);
            if (word == "login") {
                client.login(credentials);
                // The texts handed to the SASL interaction live as long as the login.
                return "ok" + (!credentials || credentials->trashcan.empty()
                                   ? ""
                                   : ", keeping " + std::to_string(credentials->trashcan.size()));
            } else if (word == "search") {
                const auto entries = client.search(base, in[2], scope, attributes, sortKey);
                const auto& result = client.lastResult();
                return shown(entries, client.lastEntryNames()) +
                       (result.errCode
                            ? " | result " + std::to_string(result.errCode) + " matched " + result.matched
                            : "");
            } else if (word == "login-async") {
                client.loginAsync(credentials, finish);
            } else if (word == "search-async") {
                client.searchAsync(base, in[2], scope, attributes, sortKey,
                                   [&](LDAP::Entries entries, std::optional<std::string> error) {
                                       done.set_value(error.value_or(shown(entries, {})) +
                                                      (std::this_thread::get_id() == caller
                                                           ? " on the caller's thread"
                                                           : ""));
                                   });
            } else if (word == "remove-async") {
                client.removeAsync(base, finish);
            } else {
                word == "add"      ? client.add(base, changes)
                : word == "modify" ? client.modify(base, changes)
                                   : client.remove(base);
                return std::string("ok");
            }
            return done.get_future().get();
        } catch (const LDAP::Exception& error) {
            return error.text();
        } catch (const Iconv::Exception& error) {
            return std::string(error.what());
        }
    });
}

// Peers that accept and then misbehave: every operation ends at its limit or sooner, with next to no
// processor time (libldap's TLS handshake used to spin on a silent peer for as long as it stayed).
TEST(LDAPMisbehavingPeer, EveryOperationEndsWithinItsLimitWithoutSpinning) {
    const LDAP::Limits limits{std::chrono::seconds(1), std::chrono::seconds(1)};
    for (const char* scheme : {"ldap", "ldaps"}) {
        for (const std::string peer : {"silent", "garbage", "closing", "trickling"}) {
            SCOPED_TRACE(std::string(scheme) + " peer " + peer);
            test::LoopbackListener listener;
            std::string received;
            std::thread server([&] {
                const int socket = listener.accept();
                // Long past the test's bound, so only the client's own limits can end the operation.
                const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(30);
                if (peer == "garbage") {
                    Descriptors::send(socket, "\x16\x03\x01\x00\x05garbage\r\n", 15, 0);
                }
                for (char byte; peer != "closing" && std::chrono::steady_clock::now() < until;) {
                    pollfd entry{socket, POLLIN, 0};
                    if (::poll(&entry, 1, 100) > 0 && ::recv(socket, &byte, 1, 0) != 1) {
                        break; // the client gave up
                    }
                    received += entry.revents ? std::string(1, byte) : "";
                    if (peer == "trickling") {
                        Descriptors::send(socket, "\x30", 1, 0);
                    }
                }
                ::close(socket);
            });
            const std::clock_t cpu = std::clock(); // every thread's, the watchdog's too
            const auto started = std::chrono::steady_clock::now();
            const std::string url = std::string(scheme) + "://127.0.0.1:" + std::to_string(listener.port());
            std::string error;
            try {
                LDAP(url, nullptr, Iconv::CodePage::UTF8, limits).search("", "(objectclass=*)", Scope::BASE);
            } catch (const LDAP::Exception& thrown) {
                error = thrown.text();
            }
            // The connection's and the operation's limits, and a margin for a busy machine.
            EXPECT_LT(std::chrono::steady_clock::now() - started,
                      limits.connect + limits.operation + std::chrono::seconds(8));
            // A spin through the one-second limit takes about a second; the first TLS set-up (its
            // certificates read) takes up to a fifth of that under the sanitizers.
            EXPECT_LT(std::clock() - cpu, CLOCKS_PER_SEC * 400 / 1000);
            server.join();
            EXPECT_NE(error, "");
            if (std::string(scheme) == "ldap" && peer == "silent") {
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
