#ifndef CORVANE_TESTS_DAEMON_MILTERCLIENT_H
#define CORVANE_TESTS_DAEMON_MILTERCLIENT_H

// The mail server's side of the milter protocol, as a server speaks it or as one never would:
//
//     MilterClient client(socket);
//     client.negotiate();
//     const Answer answer = client.deliver(Mail{"<joe@example.org>", {"<ann@example.org>"},
//                                               "Subject: hello\n\nbody\n"});
//     EXPECT_EQ(answer.code, 'a');
//
// Threads: one for each client. What takes longer than 20 seconds throws.

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace Corvane::Milter {

struct Packet {
    char command = 0;
    std::string data;
};

// What the filter wants done, and its last word: 'a' accept, 'c' continue, 'd' discard, 'r' reject,
// 't' come again, 'y' with a text; 0 where it has hung up.
struct Answer {
    char code = 0;
    std::string text;
    // "Name: value", in the order they came.
    std::vector<std::string> inserted;
    // "Name 2" for the second header of the name.
    std::vector<std::string> removed;
    std::string quarantined;

    // The value of the inserted header, unfolded; "" without one.
    std::string header(const std::string &name) const {
        for (const std::string &each : inserted) {
            if (each.rfind(name + ':', 0) == 0) {
                std::string value = each.substr(name.size() + 1);
                for (std::size_t at = 0; (at = value.find('\n', at)) != std::string::npos;) {
                    value.erase(at, 1);
                }
                return value;
            }
        }
        return {};
    }
    std::string status() const { return header("X-Corvane-Status"); }
};

struct Mail {
    std::string sender = "<joe@example.org>";
    std::vector<std::string> recipients = {"<ann@example.org>"};
    // With LF at the ends of lines.
    std::string bytes;
    std::string id = "4XqB7";
    std::string login = {};
    std::string client = "192.0.2.1";
};

class MilterClient {
public:
    static constexpr std::uint32_t kActions = 0x1FF;
    static constexpr std::uint32_t kSteps = 0x1FFFFF;
    static constexpr std::size_t kChunkBytes = 65535;

    explicit MilterClient(const std::string &path) : file_(socket(AF_UNIX, SOCK_STREAM, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(std::begin(address.sun_path), sizeof(address.sun_path) - 1);
        open(reinterpret_cast<const sockaddr *>(&address), sizeof(address));
    }
    // On the loopback address.
    explicit MilterClient(std::uint16_t port) : file_(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        open(reinterpret_cast<const sockaddr *>(&address), sizeof(address));
    }
    MilterClient(const MilterClient &) = delete;
    MilterClient &operator=(const MilterClient &) = delete;
    ~MilterClient() { close(file_); }

    // Bytes as they are; false where the filter has hung up.
    bool sendRaw(std::string_view bytes) const {
        while (!bytes.empty()) {
            const ssize_t sent = send(file_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent <= 0) {
                return false;
            }
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        }
        return true;
    }
    bool sendPacket(char command, std::string_view data = {}) const {
        return sendRaw(number(static_cast<std::uint32_t>(data.size() + 1)) + command +
                       std::string(data));
    }

    // A packet with the command 0 where the filter has hung up.
    Packet receive() const {
        std::string length = read(sizeof(std::uint32_t));
        if (length.empty()) {
            return {};
        }
        std::uint32_t bytes = 0;
        std::memcpy(&bytes, length.data(), sizeof(bytes));
        std::string whole = read(ntohl(bytes));
        return whole.empty() ? Packet{} : Packet{whole.front(), whole.substr(1)};
    }

    // Answers whether the filter takes part.
    bool negotiate(std::uint32_t actions = kActions, std::uint32_t steps = kSteps,
                   std::uint32_t version = 6) {
        sendPacket('O', number(version) + number(actions) + number(steps));
        const Packet packet = receive();
        if (packet.command != 'O' || packet.data.size() < 3 * sizeof(std::uint32_t)) {
            return false;
        }
        std::uint32_t wanted = 0;
        std::memcpy(&wanted, packet.data.data() + 2 * sizeof(wanted), sizeof(wanted));
        steps_ = ntohl(wanted);
        return true;
    }
    bool has(std::uint32_t step) const { return (steps_ & step) != 0; }

    // Sends a step and reads its answer, unless the filter wants to give none.
    Packet step(char command, std::string_view data, std::uint32_t silent = 0) const {
        sendPacket(command, data);
        return silent != 0 && has(silent) ? Packet{'c', {}} : receive();
    }

    Packet connection(const std::string &client = "192.0.2.1") const {
        constexpr std::uint16_t kPort = 25;
        const std::uint16_t port = htons(kPort);
        const bool isSix = client.find(':') != std::string::npos;
        std::string data = std::string("client.example") + '\0' + (isSix ? '6' : '4');
        data.append(reinterpret_cast<const char *>(&port), sizeof(port));
        return step('C', data + client + '\0');
    }

    // The envelope: the answer to the first step that was not let pass, else to the last.
    Packet envelope(const Mail &mail) const {
        if (!mail.login.empty()) {
            macros('M', {{"{auth_authen}", mail.login}});
        }
        Packet answer = step('M', mail.sender + '\0');
        for (const std::string &each : mail.recipients) {
            answer = answer.command == 'c' ? step('R', each + '\0') : answer;
        }
        return answer;
    }

    void content(const Mail &mail) const {
        std::string_view rest = mail.bytes;
        while (!rest.empty() && rest.front() != '\n') {
            header(rest);
        }
        rest.remove_prefix(std::min<std::size_t>(rest.size(), 1));
        step('N', {}, kSilentEnd);
        const std::string body = withReturns(rest);
        for (std::size_t at = 0; at < body.size(); at += kChunkBytes) {
            step('B', std::string_view(body).substr(at, kChunkBytes), kSilentBody);
        }
    }

    Answer end(const std::string &id) const {
        if (!id.empty()) {
            macros('E', {{"i", id}});
        }
        sendPacket('E');
        Answer answer;
        while (true) {
            const Packet packet = receive();
            if (packet.command == 'i') {
                const std::string text = packet.data.substr(sizeof(std::uint32_t));
                const std::size_t name = text.find('\0');
                answer.inserted.push_back(text.substr(0, name) + ':' +
                                          text.substr(name + 1, text.size() - name - 2));
            } else if (packet.command == 'm') {
                std::uint32_t index = 0;
                std::memcpy(&index, packet.data.data(), sizeof(index));
                answer.removed.push_back(std::string(packet.data.c_str() + sizeof(index)) + ' ' +
                                         std::to_string(ntohl(index)));
            } else if (packet.command == 'q') {
                answer.quarantined = untilNul(packet.data);
            } else {
                answer.code = packet.command;
                answer.text = untilNul(packet.data);
                return answer;
            }
        }
    }

    // A whole message in a session that has been negotiated; the client is told with the first.
    Answer deliver(const Mail &mail) {
        if (!connected_) {
            connected_ = true;
            const Packet answer = connection(mail.client);
            if (answer.command != 'c') {
                return {answer.command, answer.data, {}, {}, {}};
            }
        }
        const Packet answer = envelope(mail);
        if (answer.command != 'c') {
            return {answer.command, answer.data, {}, {}, {}};
        }
        content(mail);
        return end(mail.id);
    }

    void macros(char step, const std::vector<std::pair<std::string, std::string>> &all) const {
        std::string data(1, step);
        for (const auto &[name, value] : all) {
            data += name + '\0' + value + '\0';
        }
        sendPacket('D', data);
    }

    static std::string untilNul(const std::string &text) { return text.substr(0, text.find('\0')); }

    static std::string number(std::uint32_t value) {
        const std::uint32_t order = htonl(value);
        return {reinterpret_cast<const char *>(&order), sizeof(order)};
    }

private:
    static constexpr std::uint32_t kSilentHeader = 0x80;
    static constexpr std::uint32_t kSilentEnd = 0x40000;
    static constexpr std::uint32_t kSilentBody = 0x80000;
    static constexpr std::uint32_t kKeepsBlanks = 0x100000;

    void open(const sockaddr *address, socklen_t length) const {
        constexpr time_t kSeconds = 20;
        const timeval timeout{kSeconds, 0};
        setsockopt(file_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
        setsockopt(file_, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout));
        if (connect(file_, address, length) != 0) {
            const std::string reason = std::strerror(errno);
            close(file_);
            throw std::runtime_error("cannot connect to the filter: " + reason);
        }
    }

    // So many bytes; none where the filter has hung up.
    std::string read(std::size_t bytes) const {
        std::string all(bytes, '\0');
        for (std::size_t done = 0; done < bytes;) {
            const ssize_t got = recv(file_, all.data() + done, bytes - done, 0);
            if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
                throw std::runtime_error("the filter does not answer");
            }
            if (got <= 0) {
                return {};
            }
            done += static_cast<std::size_t>(got);
        }
        return all;
    }

    // Sends the header that the text begins with, folds included, and takes it off.
    void header(std::string_view &rest) const {
        std::size_t end = rest.find('\n');
        while (end != std::string_view::npos && end + 1 < rest.size() &&
               (rest[end + 1] == ' ' || rest[end + 1] == '\t')) {
            end = rest.find('\n', end + 1);
        }
        const std::string_view whole = rest.substr(0, end);
        rest.remove_prefix(std::min(rest.size(), whole.size() + 1));
        const std::size_t colon = std::min(whole.find(':'), whole.size());
        std::string_view value = whole.substr(std::min(colon + 1, whole.size()));
        if (!has(kKeepsBlanks) && !value.empty() && value.front() == ' ') {
            value.remove_prefix(1);
        }
        step('L', std::string(whole.substr(0, colon)) + '\0' + std::string(value) + '\0',
             kSilentHeader);
    }

    static std::string withReturns(std::string_view text) {
        std::string result;
        for (const char byte : text) {
            result += byte == '\n' ? "\r\n" : std::string(1, byte);
        }
        return result;
    }

    int file_;
    std::uint32_t steps_ = 0;
    bool connected_ = false;
};

} // namespace Corvane::Milter

#endif
