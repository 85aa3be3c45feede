#include "launchd/LaunchdLoginItem.h"

#include "base/Logger.h"
#include "base/PlatformPaths.h"
#include "platform/Platform.h"

#include <system_error>

namespace varnoth {

LaunchAgent LaunchdLoginItem::record() {
    const BundleInfo& bundle = Platform::bundle();
    LaunchAgent agent(bundle.identifier, {bundle.executablePath.string()});
    agent.runAtLoad = true;
    return agent;
}

bool LaunchdLoginItem::isTranslocated(const std::filesystem::path& executable) {
    for (const auto& part : executable) {
        if (part == "AppTranslocation") {
            return true;
        }
    }
    return false;
}

bool LaunchdLoginItem::isInstalled() {
    const LaunchAgent wanted = record();
    LaunchAgent found(wanted.label);
    try {
        control_.locate(found);
        if (!found.url) {
            return false;
        }
        const LaunchAgent installed = control_.read(*found.url);
        const bool startsAtLoad = installed.runAtLoad.value_or(false) && !installed.disabled.value_or(false);
        // launchd runs Program, or else the first word of ProgramArguments.
        std::optional<std::string> program = installed.program();
        if (!program && installed.programArguments() && !installed.programArguments()->empty()) {
            program = installed.programArguments()->front();
        }
        return startsAtLoad && program == wanted.program();
    } catch (const std::exception&) {
        // No LaunchAgents folder yet, or the file vanished between the listing and the read.
        return false;
    }
}

bool LaunchdLoginItem::install() {
    LaunchAgent agent = record();
    if (agent.label.empty() || !agent.program() || agent.program()->empty()) {
        Logger::log("Error: cannot add the login item: the bundle has no identifier or executable");
        return false;
    }
    if (isTranslocated(*agent.program())) {
        Logger::log("Error: not adding the login item: the agent runs from a translocated copy (" +
                    *agent.program() + "); move it into the Applications folder and start it from there");
        return false;
    }
    try {
        std::filesystem::create_directories(control_.launchAgentsURL());
        // Another file with the same label would be loaded at login as well; keep only ours.
        if (!remove()) {
            return false;
        }
        control_.write(agent);
    } catch (const std::exception& error) {
        Logger::log("Error: couldn't write the login item " + agent.label + ": " + error.what());
        return false;
    }
    return true;
}

bool LaunchdLoginItem::remove() {
    const std::string label = record().label;
    if (label.empty()) {
        return true;
    }
    try {
        if (!std::filesystem::exists(control_.launchAgentsURL())) {
            return true;
        }
        // Every file that carries the label; locate names one per pass.
        while (true) {
            LaunchAgent found(label);
            control_.locate(found);
            if (!found.url) {
                return true;
            }
            std::filesystem::remove(*found.url);
        }
    } catch (const std::exception& error) {
        Logger::log("Error: couldn't remove the login item " + label + ": " + error.what());
        return false;
    }
}

bool LaunchdLoginItem::isProvidedBySystem() {
    const std::string& label = Platform::bundle().identifier;
    std::error_code error;
    return !label.empty() &&
           std::filesystem::exists(PlatformPaths::systemLaunchAgentsFolder() / (label + ".plist"), error);
}

} // namespace varnoth
