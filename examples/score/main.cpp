// Scores the message on standard input: score DIRECTORY <MESSAGE

#include <iostream>
#include <sstream>

#include <corvane/RuleSet.h>

int main(int argc, char **argv) {
    try {
        const auto rules = corvane::RuleSet::load(argc > 1 ? argv[1] : ".");
        std::ostringstream message;
        message << std::cin.rdbuf();
        const corvane::Verdict verdict = rules.scan(message.str());
        std::cout << verdict.score() << (verdict.over() ? " over\n" : " ok\n");
        for (const corvane::Hit &hit : verdict.hits()) {
            std::cout << hit.name << ' ' << hit.score << ' ' << hit.description << '\n';
        }
        return verdict.over() ? 1 : 0;
    } catch (const std::exception &failure) {
        std::cerr << failure.what() << '\n';
        return 2;
    }
}
