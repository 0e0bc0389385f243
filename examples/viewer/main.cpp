#include <chrono>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <semaphore.h>
#include <signal.h>

#include <examples/common/arguments.h>

#include "clients.h"
#include "derived_fields.h"
#include "limited_server.h"
#include "model.h"
#include "options.h"
#include "page_files.h"
#include "routes.h"

namespace {

using namespace examples::viewer;

sem_t stopAsked;

/// Lets the first Ctrl-C, or a polite kill, post `stopAsked`; a second one ends the program at once.
void watchSignals() {
    ::sem_init(&stopAsked, 0, 0);
    struct sigaction action {};
    action.sa_handler = [](int) { ::sem_post(&stopAsked); };
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

/// The port that the server listens on.
int bind(LimitedServer& server, const Options& options) {
    if (options.port == 0) {
        const int port = server.bind_to_any_port(options.host);
        if (port <= 0)
            throw std::runtime_error("cannot listen on " + options.host);
        return port;
    }
    if (!server.bind_to_port(options.host, options.port))
        throw std::runtime_error("cannot listen on port " + std::to_string(options.port) + " of " +
                                 options.host +
                                 ": it is in use, or not this machine's. Choose another with --port");
    return options.port;
}

/// The names that requests may call the server by: any when others than this machine reach it.
std::vector<std::string> hostNames(const std::string& host) {
    if (host == "localhost" || host == "::1" || host.starts_with("127."))
        return {"localhost", "127.0.0.1", "[::1]", host};
    return {};
}

void serve(const Options& options) {
    constexpr std::size_t mostClients = 256;
    constexpr std::chrono::minutes expiry{2};

    // Before the cloud is read, which can take a while
    LimitedServer server;
    const int port = bind(server, options);
    const PageFiles pageFiles = readPageFiles(OMBRIX_VIEWER_PAGE);

    const std::vector<std::filesystem::path> shipped{std::filesystem::path(OMBRIX_EXAMPLE_DATA) /
                                                     "swiss_fields.las"};
    const Model model = loadModel(options.files.empty() ? shipped : options.files);
    DerivedFields fields(model);
    Clients clients(*model.tree, mostClients, expiry);
    addRoutes(server, {model, fields, clients, pageFiles, options.budget, hostNames(options.host)});

    watchSignals();
    std::thread listener([&] {
        server.listen_after_bind();
        ::sem_post(&stopAsked);
    });
    while (!server.is_running())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const std::string host =
        options.host.find(':') == std::string::npos ? options.host : "[" + options.host + "]";
    std::cout << "Open http://" << host << ':' << port << "/ in a browser. Ctrl-C ends this." << std::endl;
    while (::sem_wait(&stopAsked) != 0) {
    }
    server.finish();
    listener.join();
    std::cout << "\nEnded." << std::endl;
    // What is being computed cannot be stopped, and nobody waits for it any more.
    if (fields.busy())
        std::_Exit(0);
}

}  // namespace

int main(int argc, char** argv) {
    return examples::runProgram("scripts/view.sh", [&] {
        const Options options = parseOptions(argc, argv);
        if (options.help)
            printHelp(std::cout);
        else
            serve(options);
    });
}
