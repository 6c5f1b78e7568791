// fakecloud [PORT]: a token endpoint and a cloud on this machine, to try a home address or a client
// with. Prints its addresses, then the first line and the body of every request until its input
// ends; what a token request holds, and tokens, are secret and not printed.

#include "devkit/loopbackserver.h"

#include <cstdio>
#include <cstdlib>

namespace {

constexpr char TOKEN_PATH[] = "/oauth2/v4/token";
constexpr char TOKEN_ANSWER[] = R"({"access_token":"access","token_type":"Bearer",)"
                                R"("expires_in":3600,"refresh_token":"refresh"})";

bool answer(int socket, const LoopbackServer::Request &request)
{
    const bool isToken = request.path.find(TOKEN_PATH) != std::string::npos;
    const std::string line = request.head.substr(0, request.head.find("\r\n"));
    std::printf("%s\n%s\n", line.c_str(), isToken ? "(secret)" : request.body.c_str());
    std::fflush(stdout);
    return LoopbackServer::reply(socket, isToken ? TOKEN_ANSWER : "{}");
}

} // namespace

int main(int argc, char **argv)
{
    const int port = argc > 1 ? std::atoi(argv[1]) : 0;
    const LoopbackServer server(answer, static_cast<std::uint16_t>(port));
    if (!server.isBound()) {
        std::fprintf(stderr, "%s: port %d is taken\n", argv[0], port);
        return EXIT_FAILURE;
    }
    std::printf("home: %s\ntokens: %s\n", qPrintable(server.url("").toString()),
                qPrintable(server.url(TOKEN_PATH).toString()));
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    std::_Exit(EXIT_SUCCESS); // with whatever connections are open
}
