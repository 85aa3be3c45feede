#include "directory/LDAP.h"

#include "base/TextValues.h"
#include "directory/SocketWatchdog.h"

#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <ldap.h>
#include <sasl/sasl.h>
#include <sys/time.h>
#include <utility>

namespace varnoth {

namespace {

// The records a search result is read into before it becomes maps of text.
struct Attribute {
    std::string _name;
    std::vector<std::string> _values;
};

struct AttributeSet {
    std::string _name;
    std::vector<Attribute> _attributes;
};

struct Reference {
    std::vector<std::string> _values;
};

std::string errorText(int code) {
    return ldap_err2string(code);
}

std::string queueLabel() {
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch());
    return "ldap.thread." + std::to_string(seconds.count());
}

// Attribute names are never converted; bytes that are not UTF-8 become U+FFFD.
std::string lossyUtf8(std::string_view bytes) {
    std::string text;
    std::size_t i = 0;
    while (i < bytes.size()) {
        const auto lead = static_cast<unsigned char>(bytes[i]);
        const std::size_t length = lead < 0x80             ? 1
                                   : (lead & 0xE0) == 0xC0 ? 2
                                   : (lead & 0xF0) == 0xE0 ? 3
                                                           : 4;
        const std::string_view piece = bytes.substr(i, length);
        if (piece.size() == length && text::isValidUtf8(piece)) {
            text.append(piece);
            i += length;
        } else {
            text.append("\xEF\xBF\xBD");
            ++i;
        }
    }
    return text;
}

// Answers the SASL library's prompts from the Login, in order, until a prompt it has no answer for.
int interact(::LDAP*, unsigned, void* defaults, void* prompts) {
    auto* login = static_cast<LDAP::Login*>(defaults);
    for (auto* prompt = static_cast<sasl_interact_t*>(prompts);
         prompt->id >= SASL_CB_USER && prompt->id <= SASL_CB_GETREALM; ++prompt) {
        const std::string* answer = nullptr;
        switch (prompt->id) {
        case SASL_CB_USER:
            answer = &login->user;
            break;
        case SASL_CB_AUTHNAME:
            answer = &login->authname;
            break;
        case SASL_CB_PASS:
            answer = &login->password;
            break;
        case SASL_CB_ECHOPROMPT:
        case SASL_CB_NOECHOPROMPT:
            break;
        case SASL_CB_GETREALM:
            answer = &login->realm;
            break;
        default: // language and client nonce: nothing to offer
            return LDAP_SUCCESS;
        }
        if (answer != nullptr && !answer->empty()) {
            char* copy = ber_strdup(answer->c_str());
            login->trashcan.push_back(copy);
            prompt->result = copy;
            prompt->len = static_cast<unsigned>(answer->size());
        } else {
            prompt->len = 0;
        }
    }
    return LDAP_SUCCESS;
}

// A null-terminated array of ber_strdup copies; libldap's own allocator frees it.
class AttributeList {
public:
    explicit AttributeList(const std::vector<std::string>& names) {
        if (names.empty()) {
            return;
        }
        list_.reserve(names.size() + 1);
        for (const auto& name : names) {
            list_.push_back(ber_strdup(name.c_str()));
        }
        list_.push_back(nullptr);
    }
    ~AttributeList() {
        for (char* name : list_) {
            ber_memfree(name);
        }
    }
    AttributeList(const AttributeList&) = delete;
    AttributeList& operator=(const AttributeList&) = delete;

    char** get() { return list_.empty() ? nullptr : list_.data(); }

private:
    std::vector<char*> list_;
};

int socketOf(Sockbuf* buffer) {
    int socket = -1;
    if (buffer != nullptr) {
        ber_sockbuf_ctrl(buffer, LBER_SB_OPT_GET_FD, &socket);
    }
    return socket;
}

int onConnectionOpened(::LDAP*, Sockbuf* buffer, LDAPURLDesc*, sockaddr*, ldap_conncb* callbacks) {
    static_cast<LDAP*>(callbacks->lc_arg)->connectionOpened(socketOf(buffer));
    return 0;
}

void onConnectionClosing(::LDAP*, Sockbuf* buffer, ldap_conncb* callbacks) {
    // A null buffer announces the end of the session, whose connections were announced one by one.
    if (buffer != nullptr) {
        static_cast<LDAP*>(callbacks->lc_arg)->connectionClosing(socketOf(buffer));
    }
}

void onHandshakeStarting(::LDAP*, void*, void*, void* client) {
    static_cast<LDAP*>(client)->handshakeStarting();
}

timeval timevalOf(std::chrono::milliseconds duration) {
    return {static_cast<time_t>(duration.count() / 1000),
            static_cast<suseconds_t>(duration.count() % 1000 * 1000)};
}

} // namespace

std::string_view LDAP::mechanismName(AuthType type) {
    switch (type) {
    case AuthType::SIMPLE:
        return "";
    case AuthType::GSSAPI:
        return "GSSAPI";
    case AuthType::SPNEGO:
        return "GSS-SPNEGO";
    case AuthType::DIGEST:
        return "DIGEST-MD5";
    case AuthType::OTHER:
        break;
    }
    return "UNSUPPORTED";
}

std::optional<std::string> LDAP::firstText(const Entries& entries) {
    if (entries.empty() || entries.begin()->second.empty()) {
        return std::nullopt;
    }
    if (const auto* text = std::get_if<std::string>(&entries.begin()->second.begin()->second)) {
        return *text;
    }
    return std::nullopt;
}

LDAP::Exception::Exception(std::string text)
    : std::runtime_error("message(\"" + text + "\")"), text_(std::move(text)) {}

LDAP::Login::Login(std::string binddn, std::string password)
    : binddn(std::move(binddn)), password(std::move(password)), mechanism(AuthType::SIMPLE) {}

LDAP::Login::Login(std::string authname, std::string user, std::string password, std::string realm,
                   AuthType mechanism)
    : authname(std::move(authname)), user(std::move(user)), password(std::move(password)),
      realm(std::move(realm)), mechanism(mechanism) {}

LDAP::Login::~Login() {
    for (char* copy : trashcan) {
        ber_memfree(copy);
    }
}

LDAP::LDAP(const std::string& url, std::shared_ptr<Login> login, Iconv::CodePage codePage)
    : LDAP(url, std::move(login), codePage, Limits{}) {}

LDAP::LDAP(const std::string& url, std::shared_ptr<Login> login, Iconv::CodePage codePage, Limits limits)
    : threading(queueLabel()), limits_(limits), watchdog_(std::make_unique<SocketWatchdog>()),
      callbacks_(std::make_unique<ldap_conncb>(ldap_conncb{onConnectionOpened, onConnectionClosing, this})) {
    // A peer that closes while libldap writes (an unbind after a cut connection, say) must give an
    // error, not end the process.
    static const bool brokenPipesIgnored = [] {
        std::signal(SIGPIPE, SIG_IGN);
        return true;
    }();
    (void)brokenPipesIgnored;
    // Names, not cases: UTF_8 ("UTF-8") still gets a pair of converters.
    if (Iconv::name(codePage) != "UTF8") {
        iconv = std::make_shared<Iconv>(codePage, Iconv::CodePage::UTF8);
        iconvR = std::make_shared<Iconv>(Iconv::CodePage::UTF8, codePage);
    }
    const int initialized = ldap_initialize(&session, url.c_str());
    if (initialized != LDAP_SUCCESS) {
        session = nullptr;
        throw Exception(errorText(initialized));
    }
    try {
        // The protocol version and the two client-side time-outs are the only settings; referrals,
        // size limits and TLS keep libldap's defaults (the system's TLS configuration), and searches
        // ask the server for no time limit. The callbacks hand each socket to the watchdog and let the
        // TLS handshake wait on a blocking socket.
        const int version = LDAP_VERSION3;
        ldap_set_option(session, LDAP_OPT_PROTOCOL_VERSION, &version);
        const timeval connectTimeout = timevalOf(limits_.connect);
        ldap_set_option(session, LDAP_OPT_NETWORK_TIMEOUT, &connectTimeout);
        const timeval operationTimeout = timevalOf(limits_.operation);
        ldap_set_option(session, LDAP_OPT_TIMEOUT, &operationTimeout);
        ldap_set_option(session, LDAP_OPT_CONNECT_CB, callbacks_.get());
        ldap_set_option(session, LDAP_OPT_X_TLS_CONNECT_CB, reinterpret_cast<void*>(onHandshakeStarting));
        ldap_set_option(session, LDAP_OPT_X_TLS_CONNECT_ARG, this);
        if (login) {
            this->login(login);
        }
    } catch (...) {
        threading.finish();
        ldap_unbind_ext_s(session, nullptr, nullptr);
        session = nullptr;
        throw;
    }
}

void LDAP::connectionOpened(int socket) {
    lastSocket_ = socket;
    if (socket >= 0) {
        watchdog_->add(socket);
    }
}

void LDAP::connectionClosing(int socket) {
    watchdog_->remove(socket);
    if (socket == lastSocket_) {
        lastSocket_ = -1;
    }
}

void LDAP::handshakeStarting() {
    // With a network time-out libldap runs the TLS handshake on a non-blocking socket and, on a silent
    // peer, retries its failing reads without pause for as long as the peer keeps the connection. On a
    // blocking socket the handshake waits without using the processor, and the watchdog ends the wait.
    if (lastSocket_ >= 0) {
        const int flags = ::fcntl(lastSocket_, F_GETFL);
        if (flags >= 0) {
            ::fcntl(lastSocket_, F_SETFL, flags & ~O_NONBLOCK);
        }
    }
}

template <typename Call> int LDAP::bounded(Call call) {
    watchdog_->arm(std::chrono::steady_clock::now() + limits_.operation);
    const int result = call();
    return watchdog_->disarm() ? LDAP_TIMEOUT : result;
}

LDAP::~LDAP() {
    // Queued operations still use the session.
    threading.finish();
    if (session != nullptr) {
        ldap_unbind_ext_s(session, nullptr, nullptr);
    }
}

void LDAP::login(const std::shared_ptr<Login>& login) {
    if (!login) {
        throw Exception("LOGIN DATA NOT AVAILABLE");
    }
    const std::string mechanism(mechanismName(login->mechanism));
    if (mechanism == "UNSUPPORTED") {
        throw Exception("UNSUPPORTED MECHANISMS");
    }
    int result = LDAP_SUCCESS;
    if (mechanism.empty()) {
        char* secret = ber_strdup(login->password.c_str());
        berval credentials{login->password.size(), secret};
        result = bounded([&] {
            return ldap_sasl_bind_s(session, login->binddn.c_str(), LDAP_SASL_SIMPLE, &credentials, nullptr,
                                    nullptr, nullptr);
        });
        ber_memfree(secret);
    } else {
        result = bounded([&] {
            return ldap_sasl_interactive_bind_s(session, login->binddn.c_str(), mechanism.c_str(), nullptr,
                                                nullptr, LDAP_SASL_QUIET, interact, login.get());
        });
    }
    if (result != LDAP_SUCCESS) {
        throw Exception(errorText(result));
    }
}

std::string LDAP::decode(const char* bytes, std::size_t length) const {
    if (bytes == nullptr) {
        return {};
    }
    if (iconv) {
        const auto converted = iconv->convert(bytes, length);
        if (!converted) {
            return {};
        }
        std::string text(converted->begin(), converted->end());
        return text::isValidUtf8(text) ? text : std::string();
    }
    std::string text(bytes, strnlen(bytes, length));
    return text::isValidUtf8(text) ? text : std::string();
}

LDAP::Entries LDAP::search(const std::string& base, const std::string& filter, Scope scope,
                           const std::vector<std::string>& attributes, const std::string& sortKey) {
    LDAPControl* sortControl = nullptr;
    if (!sortKey.empty()) {
        LDAPSortKey** keys = nullptr;
        const int parsed = ldap_create_sort_keylist(&keys, const_cast<char*>(sortKey.c_str()));
        if (parsed != LDAP_SUCCESS) {
            throw Exception(errorText(parsed));
        }
        const int made = ldap_create_sort_control(session, keys, 0, &sortControl);
        ldap_free_sort_keylist(keys);
        if (made != LDAP_SUCCESS) {
            throw Exception(errorText(made));
        }
    }
    AttributeList attributeList(attributes);
    LDAPControl* serverControls[] = {sortControl, nullptr};
    LDAPMessage* message = nullptr;
    // No time limit of its own: the server gets 0 (none), and the client's limit is the session's.
    const int searched = bounded([&] {
        return ldap_search_ext_s(session, base.c_str(), static_cast<int>(scope), filter.c_str(),
                                 attributeList.get(), 0, sortControl ? serverControls : nullptr, nullptr,
                                 nullptr, 0, &message);
    });
    if (sortControl != nullptr) {
        ldap_control_free(sortControl);
    }
    if (searched == LDAP_TIMEOUT && message != nullptr) {
        ldap_msgfree(message); // what arrived before the cut is not a whole answer
        message = nullptr;
    }
    if (message == nullptr) {
        throw Exception(errorText(searched));
    }

    std::vector<AttributeSet> sets;
    std::vector<Reference> references;
    Result result;
    for (LDAPMessage* item = ldap_first_message(session, message); item != nullptr;
         item = ldap_next_message(session, item)) {
        switch (ldap_msgtype(item)) {
        case LDAP_RES_SEARCH_ENTRY: {
            char* dn = ldap_get_dn(session, item);
            if (dn == nullptr) {
                sets.push_back({});
                break;
            }
            AttributeSet set{decode(dn, std::strlen(dn)), {}};
            ldap_memfree(dn);
            BerElement* walk = nullptr;
            for (char* name = ldap_first_attribute(session, item, &walk); name != nullptr;
                 name = ldap_next_attribute(session, item, walk)) {
                Attribute attribute{lossyUtf8(name), {}};
                if (berval** values = ldap_get_values_len(session, item, name)) {
                    for (berval** value = values; *value != nullptr; ++value) {
                        attribute._values.push_back(decode((*value)->bv_val, (*value)->bv_len));
                    }
                    ldap_value_free_len(values);
                }
                ldap_memfree(name);
                set._attributes.push_back(std::move(attribute));
            }
            if (walk != nullptr) {
                ber_free(walk, 0);
            }
            sets.push_back(std::move(set));
            break;
        }
        case LDAP_RES_SEARCH_REFERENCE: {
            char** urls = nullptr;
            Reference reference;
            if (ldap_parse_reference(session, item, &urls, nullptr, 0) == LDAP_SUCCESS && urls != nullptr) {
                for (char** url = urls; *url != nullptr; ++url) {
                    reference._values.push_back(decode(*url, std::strlen(*url)));
                }
            }
            ber_memvfree(reinterpret_cast<void**>(urls));
            references.push_back(std::move(reference));
            break;
        }
        case LDAP_RES_SEARCH_RESULT: {
            int code = 0;
            char* matched = nullptr;
            char* text = nullptr;
            char** referrals = nullptr;
            if (ldap_parse_result(session, item, &code, &matched, &text, &referrals, nullptr, 0) ==
                LDAP_SUCCESS) {
                result.errCode = code;
                result.matched = matched ? decode(matched, std::strlen(matched)) : "";
                result.errMsg = text ? decode(text, std::strlen(text)) : "";
                for (char** referral = referrals; referral != nullptr && *referral != nullptr; ++referral) {
                    result.ref.push_back(decode(*referral, std::strlen(*referral)));
                }
            }
            ldap_memfree(matched);
            ldap_memfree(text);
            ber_memvfree(reinterpret_cast<void**>(referrals));
            break;
        }
        default:
            break;
        }
    }
    ldap_msgfree(message);

    lastResult_ = std::move(result);
    lastReferences_.clear();
    lastEntryNames_.clear();
    for (auto& reference : references) {
        lastReferences_.push_back(std::move(reference._values));
    }

    Entries entries;
    for (auto& set : sets) {
        lastEntryNames_.push_back(set._name);
        Attributes map;
        for (auto& attribute : set._attributes) {
            if (attribute._values.size() == 1) {
                map.insert_or_assign(attribute._name, std::move(attribute._values.front()));
            } else {
                map.insert_or_assign(attribute._name, std::move(attribute._values));
            }
        }
        entries.insert_or_assign(set._name, std::move(map));
    }
    return entries;
}

void LDAP::changeEntry(const std::string& dn, const Modifications& attributes, bool replace) {
    // Allocated with libldap's allocator so that ldap_mods_free releases everything.
    auto** mods = static_cast<LDAPMod**>(ber_memcalloc(attributes.size() + 1, sizeof(LDAPMod*)));
    std::size_t index = 0;
    bool encoded = true;
    for (const auto& [name, values] : attributes) {
        auto* mod = static_cast<LDAPMod*>(ber_memcalloc(1, sizeof(LDAPMod)));
        mods[index++] = mod;
        mod->mod_op = (replace ? LDAP_MOD_REPLACE : LDAP_MOD_ADD) | LDAP_MOD_BVALUES;
        mod->mod_type = ber_strdup(name.c_str());
        mod->mod_bvalues = static_cast<berval**>(ber_memcalloc(values.size() + 1, sizeof(berval*)));
        for (std::size_t v = 0; v < values.size(); ++v) {
            std::string bytes = values[v];
            if (iconvR) {
                const auto converted = iconvR->convert(bytes.data(), bytes.size());
                encoded = encoded && converted.has_value();
                bytes = converted ? std::string(converted->begin(), converted->end()) : std::string();
            }
            berval value{bytes.size(), const_cast<char*>(bytes.data())};
            mod->mod_bvalues[v] = ber_bvdup(&value);
        }
    }
    int result = LDAP_ENCODING_ERROR;
    if (encoded) {
        result = bounded([&] {
            return replace ? ldap_modify_ext_s(session, dn.c_str(), mods, nullptr, nullptr)
                           : ldap_add_ext_s(session, dn.c_str(), mods, nullptr, nullptr);
        });
    }
    ldap_mods_free(mods, 1);
    if (result != LDAP_SUCCESS) {
        throw Exception(errorText(result));
    }
}

void LDAP::add(const std::string& dn, const Modifications& attributes) {
    changeEntry(dn, attributes, false);
}

void LDAP::modify(const std::string& dn, const Modifications& attributes) {
    changeEntry(dn, attributes, true);
}

void LDAP::remove(const std::string& dn) {
    const int result = bounded([&] { return ldap_delete_ext_s(session, dn.c_str(), nullptr, nullptr); });
    if (result != LDAP_SUCCESS) {
        throw Exception(errorText(result));
    }
}

void LDAP::runAsync(std::function<void()> operation,
                    std::function<void(std::optional<std::string>)> completion) {
    threading.post([operation = std::move(operation), completion = std::move(completion)] {
        std::optional<std::string> error;
        try {
            operation();
        } catch (const std::exception& failure) {
            error = failure.what();
        }
        completion(error);
    });
}

void LDAP::loginAsync(std::shared_ptr<Login> login,
                      std::function<void(std::optional<std::string>)> completion) {
    runAsync([this, login = std::move(login)] { this->login(login); },
             [completion = std::move(completion)](std::optional<std::string> error) {
                 completion(error ? std::optional<std::string>("LOGIN FAILED: " + *error) : std::nullopt);
             });
}

void LDAP::searchAsync(std::string base, std::string filter, Scope scope, std::vector<std::string> attributes,
                       std::string sortKey,
                       std::function<void(Entries, std::optional<std::string> error)> completion) {
    auto entries = std::make_shared<Entries>();
    runAsync([this, entries, base = std::move(base), filter = std::move(filter), scope,
              attributes = std::move(attributes),
              sortKey = std::move(sortKey)] { *entries = search(base, filter, scope, attributes, sortKey); },
             [entries, completion = std::move(completion)](std::optional<std::string> error) {
                 completion(std::move(*entries), std::move(error));
             });
}

void LDAP::addAsync(std::string dn, Modifications attributes,
                    std::function<void(std::optional<std::string> error)> completion) {
    runAsync([this, dn = std::move(dn), attributes = std::move(attributes)] { add(dn, attributes); },
             std::move(completion));
}

void LDAP::modifyAsync(std::string dn, Modifications attributes,
                       std::function<void(std::optional<std::string> error)> completion) {
    runAsync([this, dn = std::move(dn), attributes = std::move(attributes)] { modify(dn, attributes); },
             std::move(completion));
}

void LDAP::removeAsync(std::string dn, std::function<void(std::optional<std::string> error)> completion) {
    runAsync([this, dn = std::move(dn)] { remove(dn); }, std::move(completion));
}

} // namespace varnoth
