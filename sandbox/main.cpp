// vxcloud-sandbox: serves the provider emulators on loopback until SIGINT or SIGTERM.
// When ready it prints one JSON line with the providers' base URLs and the seeded accounts.
#include <signal.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "vxcloud_sandbox/Sandbox.h"

namespace {

using nlohmann::json;
using vxcloud::sandbox::Sandbox;

constexpr int kDefaultPort = 53682;

void usage(std::FILE* out) {
    std::fprintf(out,
                 "usage: vxcloud-sandbox [--port N] [--host ADDRESS] [--allow-remote] [--auto-approve] [--tls]\n"
                 "                       [--set PROVIDER.KEY=VALUE]... [--seed-file FILE]\n"
                 "                       [--fault-rate R [--fault-seed S]]\n"
                 "\n"
                 "Serves local emulators of the cloud providers' HTTP APIs until SIGINT or SIGTERM.\n"
                 "  --port N          port to listen on (default %d; 0 picks a free port)\n"
                 "  --host ADDRESS    address to listen on (default 127.0.0.1; loopback only\n"
                 "                    unless --allow-remote)\n"
                 "  --auto-approve    approve every sign-in at once as the provider's first account\n"
                 "  --tls             serve HTTPS with a certificate made now for 127.0.0.1 and\n"
                 "                    localhost; the ready line's ca_file names the PEM to trust\n"
                 "  --set P.K=V       a provider setting, e.g. --set dropbox.list_folder_page_size=2\n"
                 "  --seed-file FILE  JSON: {\"dropbox\": {\"folders\": [\"/Scans\"],\n"
                 "                    \"files\": {\"/Scans/a.txt\": \"text\"}, \"settings\": {...}}}\n"
                 "  --fault-rate R    fault R (0 to 1) of the requests at random: 429 and 503 with\n"
                 "                    and without Retry-After, dropped connections, delays, expired\n"
                 "                    tokens; --fault-seed S fixes the draw (default 1)\n"
                 "When ready, prints one JSON line: base URLs per provider, admin URL, accounts\n"
                 "(and ca_file with --tls).\n",
                 kDefaultPort);
}

bool parsePort(const std::string& text, int& port) {
    if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos) return false;
    port = std::stoi(text);
    return port <= 65535;
}

bool applySetting(Sandbox& sandbox, const std::string& desc, std::string& error) {
    const auto dot = desc.find('.');
    const auto eq = desc.find('=');
    if (dot == std::string::npos || eq == std::string::npos || dot > eq) {
        error = "--set needs PROVIDER.KEY=VALUE, got \"" + desc + "\"";
        return false;
    }
    const std::string provider = desc.substr(0, dot), key = desc.substr(dot + 1, eq - dot - 1);
    json value = json::parse(desc.substr(eq + 1), nullptr, false);
    if (value.is_discarded()) value = desc.substr(eq + 1);  // a bare word is a string
    return sandbox.configure(provider, json{{key, value}}, &error);
}

bool applySeed(Sandbox& sandbox, const std::string& path, std::string& error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = "cannot read seed file " + path + ": " + std::strerror(errno);
        return false;
    }
    std::stringstream text;
    text << in.rdbuf();
    const json seed = json::parse(text.str(), nullptr, false);
    if (seed.is_discarded() || !seed.is_object()) {
        error = "seed file " + path + " is not a JSON object";
        return false;
    }
    for (const auto& [provider, desc] : seed.items()) {
        if (!desc.is_object()) {
            error = "seed for \"" + provider + "\" must be an object";
            return false;
        }
        const std::string account = desc.value("account", "");
        if (desc.contains("settings") && !sandbox.configure(provider, desc["settings"], &error)) return false;
        const json folders = desc.value("folders", json::array());
        const json files = desc.value("files", json::object());
        if (!folders.is_array() || !files.is_object()) {
            error = "seed for \"" + provider + "\": folders is a list, files an object";
            return false;
        }
        for (const auto& folder : folders) {
            if (!folder.is_string() || sandbox.putFolder(provider, folder.get<std::string>(), account, &error).is_null()) {
                if (error.empty()) error = "folders must be path strings";
                return false;
            }
        }
        for (const auto& [file, content] : files.items()) {
            if (!content.is_string() || sandbox.putFile(provider, file, content.get<std::string>(), account, &error).is_null()) {
                if (error.empty()) error = "file contents must be strings";
                return false;
            }
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    int port = kDefaultPort;
    std::string host = "127.0.0.1", seedFile;
    std::vector<std::string> settings;
    double faultRate = 0;
    std::uint64_t faultSeed = 1;
    Sandbox::Options options;
    const std::vector<std::string> args(argv + 1, argv + argc);
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        auto next = [&](std::string& out) {
            if (i + 1 >= args.size()) return false;
            out = args[++i];
            return true;
        };
        std::string value;
        if (arg == "--help" || arg == "-h") {
            usage(stdout);
            return 0;
        } else if (arg == "--port") {
            if (!next(value) || !parsePort(value, port)) {
                std::fprintf(stderr, "vxcloud-sandbox: --port needs a number from 0 to 65535\n");
                return 2;
            }
        } else if (arg == "--host" && next(value)) {
            host = value;
        } else if (arg == "--allow-remote") {
            options.allowRemote = true;
        } else if (arg == "--auto-approve") {
            options.autoApprove = true;
        } else if (arg == "--tls") {
            options.tls = true;
        } else if (arg == "--set" && next(value)) {
            settings.push_back(value);
        } else if (arg == "--seed-file" && next(value)) {
            seedFile = value;
        } else if (arg == "--fault-rate" && next(value)) {
            char* end = nullptr;
            faultRate = std::strtod(value.c_str(), &end);
            if (end == value.c_str() || *end != '\0' || !(faultRate >= 0 && faultRate <= 1)) {
                std::fprintf(stderr, "vxcloud-sandbox: --fault-rate needs a number from 0 to 1\n");
                return 2;
            }
        } else if (arg == "--fault-seed" && next(value)) {
            char* end = nullptr;
            faultSeed = std::strtoull(value.c_str(), &end, 10);
            if (end == value.c_str() || *end != '\0') {
                std::fprintf(stderr, "vxcloud-sandbox: --fault-seed needs a whole number\n");
                return 2;
            }
        } else {
            std::fprintf(stderr, "vxcloud-sandbox: bad argument \"%s\"\n\n", arg.c_str());
            usage(stderr);
            return 2;
        }
    }

    // Signals are taken by sigwait below; the server threads inherit the blocked mask.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    Sandbox sandbox(options);
    std::string error;
    for (const auto& desc : settings) {
        if (!applySetting(sandbox, desc, error)) {
            std::fprintf(stderr, "vxcloud-sandbox: %s\n", error.c_str());
            return 2;
        }
    }
    if (!seedFile.empty() && !applySeed(sandbox, seedFile, error)) {
        std::fprintf(stderr, "vxcloud-sandbox: %s\n", error.c_str());
        return 2;
    }
    sandbox.setRandomFaults(faultRate, faultSeed);
    if (!sandbox.start(port, host, &error)) {
        std::fprintf(stderr, "vxcloud-sandbox: %s\n", error.c_str());
        return 1;
    }
    std::printf("%s\n", sandbox.readyLine().c_str());
    std::fflush(stdout);

    int received = 0;
    sigwait(&signals, &received);
    sandbox.stop();
    return 0;
}
