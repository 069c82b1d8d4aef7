// cloud CERTIFICATE KEY - a cloud that accepts every request and prints its path.
#include <httplib.h>

#include <cstdio>

int main(int, char** arguments) {
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    httplib::SSLServer server(arguments[1], arguments[2]);
    server.set_tcp_nodelay(true);
    server.Post(".*", [](const httplib::Request& request, httplib::Response& response) {
        std::puts(request.path.c_str());
        response.set_content(R"({"status": 1})", "application/json");
    });
    return server.listen("127.0.0.1", 443) ? 0 : 1;
}
