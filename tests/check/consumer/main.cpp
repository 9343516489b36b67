// Loads the rule set of a directory and scores one message; exits with 0 when exactly one rule trips and an exception of
// the libraries can be caught here.

#include <iostream>

#include <heuristic/Scanner.h>
#include <host/parser/Exception.h>
#include <host/parser/MailReader.h>

int main(int argc, char **argv) {
    if (argc != 2) {
        return 2;
    }
    const std::string message = "Subject: hello\n\nfree offer\n";
    Corvane::Heuristic::Scanner scanner{Corvane::File::Path(argv[1])};
    auto matches = Corvane::Heuristic::RefMatches::create();
    const Corvane::Mail mail = Corvane::MailReader().read(message.data(), message.size());
    scanner.process(matches, mail.properties(), mail.sender(), 0, false);
    std::cout << matches->size() << " tripped, total " << matches.score(false) << '\n';
    try {
        scanner.rules().bodyRules(Corvane::Heuristic::ALL);
    } catch (const Corvane::Exception &failure) {
        return matches->size() == 1 && failure.code() == Corvane::Exception::kGeneral ? 0 : 1;
    }
    return 1;
}
