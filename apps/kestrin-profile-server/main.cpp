#include <csignal>
#include <exception>
#include <iostream>
#include <pthread.h>
#include <unistd.h>
#include <utility>

#include <kestrin-profile-server/CommandLine.hpp>
#include <kestrin-profile-server/Introduction.hpp>
#include <kestrin-profile-server/tls/DevelopmentCertificate.hpp>

namespace KestrinProfileServer {
namespace {

sigset_t stopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGHUP);
    return signals;
}

/// From here on the stop signals wait until someone asks for them; new threads inherit this.
void holdStopSignals() {
    const sigset_t signals = stopSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    // A reader of the output that goes away is no reason to end.
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
}

/// Returns at the first stop signal; a second one ends the program at once.
void waitForStop() {
    const sigset_t signals = stopSignals();
    int number = 0;
    sigwait(&signals, &number);
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

/// Makes sure that there is a certificate, if the options want one.
void prepareTLS(Options& options) {
    if (!options.tls) return;
    DevelopmentCertificate made = developmentCertificate(options.tls->folder, options.tls->names);
    if (made.isNewAuthority) {
        std::cerr << "a new certificate authority for development: '" << made.authorityFile.string()
                  << "'; clients take this service once they trust it, as docs/service.md tells\n";
    }
    options.service.http.tls = std::move(made.identity);
    options.service.authority = std::move(made.authority);
}

void serve(Options options) {
    holdStopSignals();
    prepareTLS(options);
    Service service(options.service);
    std::cerr << warning(options)
              << invitation(options, service.publicURL(), service.household(),
                            ::isatty(STDERR_FILENO) == 1);
    const auto configuration = writtenConfiguration(options, service);
    std::cout << "kestrin-profile-server ready on " << service.baseURL() << '\n';
    if (options.isIntroduced) std::cout << introduction(options, service, configuration);
    std::cout << std::flush;
    waitForStop();
    service.stop();
}

int run(int count, const char* const* arguments) {
    const auto parsed = parsedCommandLine(count, arguments);
    if (const auto* end = std::get_if<EarlyEnd>(&parsed)) {
        (end->exitCode == cleanStop ? std::cout : std::cerr) << end->message;
        return end->exitCode;
    }
    try {
        serve(std::get<Options>(parsed));
    } catch (const std::exception& error) {
        std::cerr << "kestrin-profile-server: " << error.what() << '\n';
        return failure;
    }
    return cleanStop;
}

}  // namespace
}  // namespace KestrinProfileServer

int main(int count, char** arguments) {
    return KestrinProfileServer::run(count, arguments);
}
