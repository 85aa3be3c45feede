#pragma once

#include "directory/Iconv.h"
#include "directory/SerialQueue.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <variant>
#include <vector>

struct ldap;        // libldap's session
struct ldap_conncb; // its connection callbacks

namespace varnoth {

class SocketWatchdog;

// A small directory client on libldap: one session per object, bound at construction when a login
// is given, searches whose entries come back as maps of text. Every synchronous call blocks the
// caller for the whole exchange, bounded by the limits below; one object must not be used from two
// threads at once. The asynchronous variants run on the object's own worker thread and call their
// completion there.
class LDAP {
public:
    // Client-side bounds only: a dead or silent directory must not hold the agent for minutes, and a
    // slow but healthy one must not be cut short, so searches carry no time limit for the server.
    struct Limits {
        // Establishing the TCP connection.
        std::chrono::milliseconds connect{std::chrono::seconds(5)};
        // Each bind, search or change, with the connection and TLS handshake it may have to make first.
        // At the limit the connection is cut, whatever the peer does (silent, trickling, half a
        // handshake).
        std::chrono::milliseconds operation{std::chrono::seconds(30)};
    };

    enum class AuthType { SIMPLE, GSSAPI, SPNEGO, DIGEST, OTHER };
    // The SASL mechanism name: "" for a simple bind, "UNSUPPORTED" for OTHER.
    static std::string_view mechanismName(AuthType type);

    enum class Scope : int { BASE = 0, SINGLE_LEVEL = 1, SUBTREE = 2, CHILDREN = 3, DEFAULT = -1 };

    // The client's error. what() is the printed form, message("<text>"); text() is the bare text.
    class Exception : public std::runtime_error {
    public:
        enum Case { message };
        explicit Exception(std::string text);
        const std::string& text() const { return text_; }
        Case value = message;

    private:
        std::string text_;
    };

    // The credentials of one bind. Copies handed to the SASL library live in the trashcan as long as
    // the Login does.
    class Login {
    public:
        // A simple bind as binddn.
        Login(std::string binddn, std::string password);
        // A SASL bind; SIMPLE here binds simply with an empty DN.
        Login(std::string authname, std::string user, std::string password, std::string realm,
              AuthType mechanism);
        ~Login();
        Login(const Login&) = delete;
        Login& operator=(const Login&) = delete;

        std::string authname;
        std::string binddn;
        std::string user;
        std::string password;
        std::string realm;
        AuthType mechanism;
        std::vector<char*> trashcan;
    };

    // One value gives a text, several a list. An attribute that arrives without values (types only,
    // or values hidden by access controls) gives an empty list, so that its presence is still seen.
    using Value = std::variant<std::string, std::vector<std::string>>;
    using Attributes = std::unordered_map<std::string, Value>;
    // Entry DN to its attributes.
    using Entries = std::unordered_map<std::string, Attributes>;
    // Attribute name to the values to store.
    using Modifications = std::map<std::string, std::vector<std::string>>;

    // The final result record of the last search: a search whose result carries an error returns the
    // entries received so far and throws nothing, so callers that care look here.
    struct Result {
        std::int32_t errCode = 0;
        std::string errMsg;
        std::string matched;
        std::vector<std::string> ref;
    };

    // Throws Exception, or Iconv::Exception when the code page has no converter from or to UTF-8.
    // The first value of the first entry's first attribute, when it is a single text. The maps have
    // no order: with several entries or attributes, which one comes first is not defined.
    static std::optional<std::string> firstText(const Entries& entries);

    explicit LDAP(const std::string& url, std::shared_ptr<Login> login = nullptr,
                  Iconv::CodePage codePage = Iconv::CodePage::UTF8);
    LDAP(const std::string& url, std::shared_ptr<Login> login, Iconv::CodePage codePage, Limits limits);
    ~LDAP();
    LDAP(const LDAP&) = delete;
    LDAP& operator=(const LDAP&) = delete;

    void login(const std::shared_ptr<Login>& login);
    // An empty attribute list asks for every user attribute; an empty sort key for no server-side
    // sorting (a leading "-" sorts in reverse). Base and filter go out as UTF-8.
    Entries search(const std::string& base, const std::string& filter, Scope scope,
                   const std::vector<std::string>& attributes = {}, const std::string& sortKey = "");
    void add(const std::string& dn, const Modifications& attributes);
    // Replaces the values of the given attributes.
    void modify(const std::string& dn, const Modifications& attributes);
    // Deletes the entry.
    void remove(const std::string& dn);

    const Result& lastResult() const { return lastResult_; }
    // The DNs of the last search in the order the server sent them: the returned map cannot keep the
    // order that a sort key asked the server for.
    const std::vector<std::string>& lastEntryNames() const { return lastEntryNames_; }
    // The referral URLs of each search reference of the last search.
    const std::vector<std::vector<std::string>>& lastReferences() const { return lastReferences_; }

    // Nothing on success, else "LOGIN FAILED: " and the error's printed form.
    void loginAsync(std::shared_ptr<Login> login, std::function<void(std::optional<std::string>)> completion);
    // The entries, or the error's printed form.
    void searchAsync(std::string base, std::string filter, Scope scope, std::vector<std::string> attributes,
                     std::string sortKey,
                     std::function<void(Entries, std::optional<std::string> error)> completion);
    void addAsync(std::string dn, Modifications attributes,
                  std::function<void(std::optional<std::string> error)> completion);
    void modifyAsync(std::string dn, Modifications attributes,
                     std::function<void(std::optional<std::string> error)> completion);
    void removeAsync(std::string dn, std::function<void(std::optional<std::string> error)> completion);

    const std::string& threadLabel() const { return threading.label(); }

    // libldap's connection callbacks: they hand each socket to the watchdog.
    void connectionOpened(int socket);
    void connectionClosing(int socket);
    void handshakeStarting();

private:
    // Runs one libldap call under the watchdog: LDAP_TIMEOUT when the watchdog had to cut it.
    template <typename Call> int bounded(Call call);
    void changeEntry(const std::string& dn, const Modifications& attributes, bool replace);
    void runAsync(std::function<void()> operation,
                  std::function<void(std::optional<std::string>)> completion);
    std::string decode(const char* bytes, std::size_t length) const;

    SerialQueue threading;
    Limits limits_;
    std::unique_ptr<SocketWatchdog> watchdog_;
    std::unique_ptr<ldap_conncb> callbacks_;
    int lastSocket_ = -1;
    ::ldap* session = nullptr;
    std::shared_ptr<Iconv> iconv;  // directory code page to UTF-8
    std::shared_ptr<Iconv> iconvR; // UTF-8 to the directory code page
    Result lastResult_;
    std::vector<std::string> lastEntryNames_;
    std::vector<std::vector<std::string>> lastReferences_;
};

} // namespace varnoth
