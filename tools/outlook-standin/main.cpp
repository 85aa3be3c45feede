// varnoth-outlook-standin: plays Outlook for the agent where there is no Outlook. The bundle's script
// resource runs it with one message of the Outlook script (arguments NUL-terminated on standard input,
// the answer on standard output); a user runs it to look at or prepare the store.

#include "outlook/AppleScriptProtocol.h"
#include "tools/outlook-standin/OutlookStandInStore.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

using varnoth::AppleScriptProtocol;
using varnoth::OutlookStandInStore;
using Selector = AppleScriptProtocol::Selector;

namespace {

constexpr int failed = 1;
constexpr int misused = 2;

void usage(std::ostream& out) {
    out << "Usage: varnoth-outlook-standin COMMAND\n\n"
           "A stand-in for Microsoft Outlook's signatures, kept in $XDG_DATA_HOME/Varnoth/Outlook\n"
           "(default ~/.local/share/Varnoth/Outlook). Varnoth Brelvane Agent installs its signatures "
           "here.\n\n"
           "Commands:\n"
           "  list                   the signatures, the default account and the default signatures\n"
           "  show NAME              print one signature's content exactly as stored\n"
           "  set-account ADDRESS    set Outlook's default account (empty text: none)\n"
           "  set-version TEXT       set the version Outlook reports (empty text: none)\n"
           "  set-form exact|html    keep created signatures byte for byte (exact, the default) or as\n"
           "                         Outlook for Mac's HTML editor does (html: a whole document, CR LF\n"
           "                         line breaks, &quot; for quotes in the text)\n"
           "  set-installed yes|no   play an Outlook that is installed or not\n"
           "  set-mode classic|new   play legacy Outlook or new Outlook, which scripts no signatures\n"
           "  set-automation allowed|denied\n"
           "                         play the user's answer to the agent's automation of Outlook\n"
           "  path                   print the store's folder\n"
           "  help                   show this help\n\n"
           "The agent's script sends one of the script operations (getVersion, getSignature:, ...) with\n"
           "its arguments on standard input, each followed by a NUL byte.\n"
           "Environment: VARNOTH_OUTLOOK_ACCOUNT, VARNOTH_OUTLOOK_VERSION and VARNOTH_OUTLOOK_FORM override\n"
           "the stored values.\n";
}

// Names may hold line breaks and other controls; the listing shows them escaped.
std::string printable(const std::string& text) {
    std::string shown;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n') {
            shown += "\\n";
        } else if (c == '\t') {
            shown += "\\t";
        } else if (c == '\\') {
            shown += "\\\\";
        } else if (byte < 0x20 || byte == 0x7F) {
            static constexpr char hex[] = "0123456789ABCDEF";
            shown += "\\x";
            shown += hex[byte >> 4];
            shown += hex[byte & 0xF];
        } else {
            shown += c;
        }
    }
    return shown;
}

void list(const OutlookStandInStore& store) {
    const std::string account = store.defaultAccount();
    std::cout << "Store: " << store.folder().string() << "\n"
              << "Version: " << printable(store.version()) << "\n"
              << "Default account: " << (account.empty() ? "(none)" : printable(account)) << "\n"
              << "Form: " << printable(store.form()) << "\n";
    for (const auto& choice : OutlookStandInStore::stateKeys) { // shown when the store plays a fault
        if (store.state(choice.key) != choice.normal) {
            std::cout << "State " << choice.key << ": " << store.state(choice.key) << "\n";
        }
    }
    const auto names = store.signatureNames();
    std::cout << "Signatures: " << names.size() << "\n";
    for (const auto& name : names) {
        std::cout << "  " << printable(name) << " (" << store.signature(name).value_or("").size()
                  << " bytes)\n";
    }
    std::cout << "Default signatures:\n";
    const auto accounts = store.accountsWithDefaults();
    if (accounts.empty()) {
        std::cout << "  (none set)\n";
    }
    for (const auto& owner : accounts) {
        const auto defaults = store.defaults(owner);
        std::cout << "  " << printable(owner) << "\n"
                  << "    new messages: " << printable(defaults.newMessages.value_or("(none)")) << "\n"
                  << "    replies and forwards: " << printable(defaults.repliesAndForwards.value_or("(none)"))
                  << "\n";
    }
}

// One message of the script: its arguments are NUL-terminated texts on standard input.
int answer(OutlookStandInStore& store, const std::string& selector) {
    // Someone trying "getVersion" at a terminal should not have to type an end of input.
    const bool interactive = AppleScriptProtocol::argumentCount(selector) == 0 && ::isatty(STDIN_FILENO) == 1;
    const std::string input = interactive ? std::string()
                                          : std::string((std::istreambuf_iterator<char>(std::cin)),
                                                        std::istreambuf_iterator<char>());
    std::vector<std::string> arguments;
    std::size_t start = 0;
    for (std::size_t end; (end = input.find('\0', start)) != std::string::npos; start = end + 1) {
        arguments.push_back(input.substr(start, end - start));
    }
    if (start != input.size() || arguments.size() != AppleScriptProtocol::argumentCount(selector)) {
        std::cerr << "varnoth-outlook-standin: " << selector << " takes "
                  << AppleScriptProtocol::argumentCount(selector)
                  << " NUL-terminated arguments on standard input\n";
        return misused;
    }
    const std::string none;
    const std::string& first = arguments.empty() ? none : arguments[0];

    // Outlook's states fail a message as AppleScript reports it: the text, then the error number.
    const auto refuse = [](const char* text, int number) {
        std::cerr << text << " (error " << number << ")\n";
        return failed;
    };
    if (store.state("installed") == "no") {
        return refuse("Microsoft Outlook is not installed.", -10814);
    }
    if (store.state("automation") == "denied") {
        return refuse("Not authorized to send Apple events to Microsoft Outlook.", -1743);
    }
    // New Outlook answers its version and little else: no signatures, no default account.
    if (store.state("mode") == "new" && selector != Selector::getVersion) {
        return selector.starts_with("get")
                   ? refuse(selector == Selector::getDefaultAccount
                                ? "Microsoft Outlook got an error: Can't get default account."
                                : "Microsoft Outlook got an error: Can't get signature.",
                            -1728)
                   : refuse("Microsoft Outlook got an error: It doesn't understand the message.", -1708);
    }

    if (selector == Selector::getVersion) {
        std::cout << store.version();
    } else if (selector == Selector::getDefaultAccount) {
        std::cout << store.defaultAccount();
    } else if (selector == Selector::getSignature) {
        std::cout << store.signature(first).value_or("");
    } else if (selector == Selector::getSignatureNames) {
        for (const auto& name : store.signatureNames()) {
            std::cout << name << "\n";
        }
    } else if (selector == Selector::createSignature) {
        store.createSignature(first, arguments[1]);
    } else if (selector == Selector::deleteSignature) {
        store.deleteSignature(first);
    } else if (selector == Selector::deleteSignatures) {
        store.deleteSignatures();
    } else if (selector == Selector::applySignaturesFor) {
        store.setDefaultNewSignature(first, AppleScriptProtocol::defaultNewSignatureName);
        store.setDefaultReplySignature(first, AppleScriptProtocol::defaultReplySignatureName);
    } else if (selector == Selector::applyDefaultNewSignatureFor) {
        store.setDefaultNewSignature(first, AppleScriptProtocol::defaultNewSignatureName);
    } else if (selector == Selector::applyDefaultReplySignatureFor) {
        store.setDefaultReplySignature(first, AppleScriptProtocol::defaultReplySignatureName);
    } else if (selector == Selector::applyNoneSignaturesFor) {
        store.setDefaultNewSignature(first, std::nullopt);
        store.setDefaultReplySignature(first, std::nullopt);
    } else if (selector == Selector::applyNoneDefaultNewSignatureFor) {
        store.setDefaultNewSignature(first, std::nullopt);
    } else if (selector == Selector::applyNoneDefaultReplySignatureFor) {
        store.setDefaultReplySignature(first, std::nullopt);
    }
    std::cout.flush();
    return std::cout ? 0 : failed;
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.empty()) {
        usage(std::cerr);
        return misused;
    }
    const std::string& command = arguments[0];
    try {
        OutlookStandInStore store(OutlookStandInStore::defaultFolder());
        if (AppleScriptProtocol::isSelector(command) && arguments.size() == 1) {
            return answer(store, command);
        }
        if (command == "help" || command == "--help" || command == "-h") {
            usage(std::cout);
        } else if (command == "list" && arguments.size() == 1) {
            list(store);
        } else if (command == "show" && arguments.size() == 2) {
            const auto content = store.signature(arguments[1]);
            if (!content) {
                std::cerr << "varnoth-outlook-standin: there is no signature named " << arguments[1] << "\n";
                return failed;
            }
            std::cout << *content;
        } else if (command == "set-account" && arguments.size() == 2) {
            store.setDefaultAccount(arguments[1]);
        } else if (command == "set-version" && arguments.size() == 2) {
            store.setVersion(arguments[1]);
        } else if (command == "set-form" && arguments.size() == 2) {
            store.setForm(arguments[1]);
        } else if (command.starts_with("set-") && arguments.size() == 2 &&
                   std::ranges::any_of(OutlookStandInStore::stateKeys,
                                       [&](const auto& choice) { return command.substr(4) == choice.key; })) {
            store.setState(command.substr(4), arguments[1]);
        } else if (command == "path" && arguments.size() == 1) {
            std::cout << store.folder().string() << "\n";
        } else {
            std::cerr << "varnoth-outlook-standin: unknown command or operation: " << command << "\n\n";
            usage(std::cerr);
            return misused;
        }
    } catch (const std::exception& error) {
        std::cerr << "varnoth-outlook-standin: " << error.what() << "\n";
        return failed;
    }
    std::cout.flush();
    return std::cout ? 0 : failed;
}
