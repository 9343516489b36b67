// Scores one message by the library over all others; exits with 0 when exactly the one rule trips and a rule set that is
// missing is told as an exception.

#include <iostream>

#include <corvane/RuleSet.h>

int main(int argc, char **argv) {
    if (argc != 2) {
        return 2;
    }
    const auto rules = corvane::RuleSet::load(argv[1]);
    corvane::ScanOptions options;
    options.threshold = 0.5F;
    const corvane::Verdict verdict = rules.scan("Subject: hello\n\nfree offer\n", options);
    for (const corvane::Hit &hit : verdict.hits()) {
        std::cout << hit.name << ' ' << hit.score << ' ' << hit.file << ':' << hit.line << '\n';
    }
    try {
        corvane::RuleSet::load("/nonexistent");
    } catch (const corvane::LoadError &failure) {
        return verdict.over() && verdict.hits().size() == 1 && failure.file() == "/nonexistent" ? 0
                                                                                                : 1;
    }
    return 1;
}
