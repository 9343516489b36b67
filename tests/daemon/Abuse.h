#ifndef CORVANE_TESTS_DAEMON_ABUSE_H
#define CORVANE_TESTS_DAEMON_ABUSE_H

// Sessions as no mail server has them: cut off, out of order, with lengths, versions, macros and
// bytes that are wrong. The same number gives the same session.
//
//     for (unsigned int each = 0; each < 5000; ++each) { abuse(socket, each); }
//
// Threads: any.

#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <poll.h>

#include "daemon/MilterClient.h"

namespace Corvane::Milter {

class AbusiveSession {
public:
    AbusiveSession(const std::string &socket, unsigned int number)
        : random_(number), number_(number), client_(socket) {}

    // Its end is a hang-up without a word.
    void run() {
        using Kind = void (AbusiveSession::*)();
        constexpr std::array<Kind, 10> kKinds = {
            &AbusiveSession::sayNothing,    &AbusiveSession::lieAboutLengths,
            &AbusiveSession::babble,        &AbusiveSession::useOtherVersion,
            &AbusiveSession::stopAtAStage,  &AbusiveSession::mixUpSteps,
            &AbusiveSession::sendSlowly,    &AbusiveSession::sendBrokenMacros,
            &AbusiveSession::sendOddFields, &AbusiveSession::endAndEndAgain};
        (this->*kKinds[number_ % kKinds.size()])();
    }

private:
    static constexpr std::size_t kLongBytes = 65536;
    static constexpr unsigned int kBytes = 256;

    unsigned int below(unsigned int bound) { return static_cast<unsigned int>(random_()) % bound; }

    std::string bytes(std::size_t count) {
        std::string all(count, '\0');
        for (char &byte : all) {
            byte = static_cast<char>(below(kBytes));
        }
        return all;
    }

    // What must not end a line, close a quote or stand for something else wherever it is shown.
    std::string odd() {
        const std::string texts[] = {"a\r\nX-Corvane-Status: clean",
                                     std::string("a\0b", 3),
                                     "\" level=error event=\"forged",
                                     "%s%n%1$s",
                                     "\n# TYPE forged counter\nforged 1",
                                     std::string(kLongBytes, 'x'),
                                     bytes(kBytes),
                                     ""};
        return texts[below(std::size(texts))];
    }

    Mail mail() {
        Mail mail;
        mail.bytes = "Subject: hello\nMessage-ID: <" + std::to_string(number_) + ">\n\nprize\n";
        return mail;
    }

    void sayNothing() {
        constexpr int kMostMillis = 5;
        poll(nullptr, 0, static_cast<int>(below(kMostMillis)));
    }

    void lieAboutLengths() {
        constexpr std::uint32_t kLengths[] = {0, 0xFFFFFFFF, 0x7FFFFFFF, 0x80000000,
                                              1, 0x100001,   13};
        if (below(2) == 0) {
            client_.negotiate();
        }
        client_.sendRaw(MilterClient::number(kLengths[below(std::size(kLengths))]) +
                        bytes(below(kBytes)));
    }

    void babble() { client_.sendRaw(bytes(below(kLongBytes))); }

    void useOtherVersion() {
        constexpr std::uint32_t kVersions[] = {0, 1, 2, 3, 5, 7, 255, 0xFFFFFFFF};
        const std::uint32_t bits = static_cast<std::uint32_t>(random_());
        if (client_.negotiate(bits | 0x11U, bits, kVersions[below(std::size(kVersions))])) {
            client_.deliver(mail());
        }
    }

    // Each stage ends in a hang-up, an abort or a goodbye.
    void stopAtAStage() {
        const Mail message = mail();
        const unsigned int stage = below(6);
        if (!client_.negotiate() || stage == 0) {
            return;
        }
        client_.connection();
        if (stage > 1) {
            client_.step('M', message.sender + '\0');
        }
        if (stage > 2) {
            client_.step('R', message.recipients.front() + '\0');
        }
        if (stage > 3) {
            client_.sendPacket('L', std::string("Subject\0 x\0", 11));
        }
        if (stage > 4) {
            client_.sendPacket('N');
            client_.sendPacket('B', bytes(below(kLongBytes)));
        }
        const char end = "AQK\0"[below(4)];
        if (end != '\0') {
            client_.sendPacket(end);
        }
    }

    void mixUpSteps() {
        client_.negotiate();
        const std::string commands = "ABCDEHKLMNOQRTU";
        constexpr unsigned int kMostSteps = 12;
        for (unsigned int step = below(kMostSteps); step > 0; --step) {
            client_.sendPacket(commands[below(static_cast<unsigned int>(commands.size()))],
                               below(2) == 0 ? odd() : odd() + '\0' + odd() + '\0');
        }
    }

    void sendSlowly() {
        const std::string begin = MilterClient::number(13) + 'O' + MilterClient::number(6) +
                                  MilterClient::number(MilterClient::kActions) +
                                  MilterClient::number(0);
        const std::size_t most = below(static_cast<unsigned int>(begin.size()) + 1);
        for (std::size_t each = 0; each < most; ++each) {
            client_.sendRaw(begin.substr(each, 1));
            poll(nullptr, 0, 1);
        }
    }

    void sendBrokenMacros() {
        client_.negotiate();
        client_.sendPacket('D');
        client_.sendPacket('D', "M");
        client_.sendPacket('D', "Mi");
        client_.sendPacket('D', std::string("M{auth_type}\0", 13));
        client_.sendPacket('D', bytes(kBytes));
        client_.macros('E', {{"i", odd()}, {odd(), "x"}});
        client_.deliver(mail());
    }

    void sendOddFields() {
        client_.negotiate();
        client_.connection();
        client_.sendPacket('M', odd() + (below(2) == 0 ? std::string(1, '\0') : ""));
        client_.sendPacket('R', odd() + '\0');
        client_.sendPacket('L', odd() + '\0' + odd() + '\0');
        client_.sendPacket('L', "Message-ID" + std::string(1, '\0') + odd() + '\0');
        client_.sendPacket('N');
        client_.sendPacket('B', odd());
        client_.macros('E', {{"i", odd()}});
        client_.sendPacket('E');
    }

    void endAndEndAgain() {
        client_.negotiate();
        client_.deliver(mail());
        client_.sendPacket('E');
        client_.sendPacket('E', "more");
        client_.sendPacket('A');
        client_.sendPacket('A');
        client_.sendPacket('Q');
        client_.sendPacket('M', std::string("<a@b>\0", 6));
    }

    std::mt19937 random_;
    unsigned int number_;
    MilterClient client_;
};

// One session; what the daemon answers, or that it hangs up, is of no interest. Throws where it
// takes no connection, or is silent for long.
inline void abuse(const std::string &socket, unsigned int number) {
    AbusiveSession(socket, number).run();
}

} // namespace Corvane::Milter

#endif
