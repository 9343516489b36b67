// A mail filter without its mail server: takes a message in pieces on several threads, as a server
// hands it over, while another thread reloads the rules.
//
//     filter MESSAGE DIRECTORY...

#include <atomic>
#include <chrono>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include <corvane/Engine.h>
#include <corvane/MessageCollector.h>
#include <corvane/RuleSetHolder.h>

namespace {

using Directories = std::vector<std::string>;

corvane::RuleSet loadFirst(const Directories &directories) {
    const corvane::RuleSet rules = corvane::RuleSet::load(directories);
    std::cerr << rules.size() << " rules, generation " << rules.generation() << ", engine "
              << corvane::engine() << '\n';
    for (const corvane::Problem &problem : rules.problems()) {
        std::cerr << toString(problem) << '\n';
    }
    return rules;
}

corvane::ScanOptions optionsOf(const std::string &sender) {
    corvane::ScanOptions options;
    options.threshold = 5.0F;
    options.sender = sender;
    options.budget = std::chrono::seconds(1);
    options.limits.messageBytes = 10U << 20U;
    return options;
}

// One message as a server hands it over: headers one by one, then the body in pieces.
corvane::Verdict scanOne(const corvane::RuleSetHolder &holder, const std::string &file) {
    corvane::MessageCollector message(optionsOf("bounce@claims.example.com"));
    std::ifstream in(file, std::ios::binary);
    std::string line;
    while (std::getline(in, line) && !line.empty()) {
        const std::size_t colon = line.find(':');
        message.rawHeader(line.substr(0, colon), line.substr(colon + 1));
    }
    std::string piece(4096, '\0');
    while (in.read(piece.data(), 4096) || in.gcount() > 0) {
        message.body({piece.data(), static_cast<std::size_t>(in.gcount())});
    }
    return message.finish(holder.current());
}

int run(const std::string &file, const Directories &directories) {
    corvane::RuleSetHolder holder(loadFirst(directories));
    std::atomic<unsigned int> over{0};
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int scan = 0; scan < 50; ++scan) {
                over += scanOne(holder, file).over() ? 1U : 0U;
            }
        });
    }
    const auto good = holder.reload(directories);
    const auto bad = holder.reload("/nonexistent");
    for (std::thread &thread : threads) {
        thread.join();
    }
    std::cout << over << " of 200 over\n" << (good.replaced() ? "replaced\n" : "kept\n");
    std::cout << (bad.replaced() ? "replaced\n" : "kept: " + bad.reason + '\n');
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 3) {
        std::cerr << "usage: filter MESSAGE DIRECTORY...\n";
        return 2;
    }
    try {
        return run(argv[1], Directories(argv + 2, argv + argc));
    } catch (const std::exception &failure) {
        std::cerr << "filter: " << failure.what() << '\n';
        return 2;
    }
}
