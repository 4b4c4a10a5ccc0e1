// The least server whose clients' threads hand each request to one thread that answers: it answers the same
// to all.
//
//   bare_echo PORT REPLY
//
// Says "ready" and goes on until it is killed.
#include "common/uniquefd.h"
#include "kit/program.h"

#include <array>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace
{
struct Request
{
    int client;
    std::string text;
};

std::mutex mutex;
std::condition_variable changed;
std::deque<Request> requests;

void readFrom(UniqueFd client)
{
    std::array<char, 4096> buffer = {};
    while (true) {
        const ssize_t size = ::recv(client.get(), buffer.data(), buffer.size(), 0);
        if (size <= 0) {
            return;
        }
        {
            const std::lock_guard<std::mutex> lock(mutex);
            requests.push_back({client.get(), std::string(buffer.data(), static_cast<size_t>(size))});
        }
        changed.notify_one();
    }
}

void acceptClients(const UniqueFd& listener)
{
    while (true) {
        UniqueFd client(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!client.isValid()) {
            Program::fail("accept", errno);
        }
        std::thread(readFrom, std::move(client)).detach();
    }
}

void answerAll(const std::string& reply)
{
    while (true) {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [] { return !requests.empty(); });
        const Request request = std::move(requests.front());
        requests.pop_front();
        lock.unlock();
        ::send(request.client, reply.data(), reply.size(), MSG_NOSIGNAL);
    }
}
} // namespace

int main(int argc, char* argv[])
{
    Program::expectArguments(argc, 2, "bare_echo PORT REPLY");
    const UniqueFd listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    ::setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(Program::number(argv[1])));
    if (::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(listener.get(), SOMAXCONN) != 0) {
        Program::fail("listen", errno);
    }
    Program::tellReady();
    std::thread acceptor(acceptClients, std::cref(listener));
    answerAll(argv[2]);
}
