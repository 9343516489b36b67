#include "Encrypt.h"

namespace Corvane::Cli {

void addEncryptCommand(CLI::App &app, RuleSetCopyOptions &options) {
    addRuleSetCopyOptions(*app.add_subcommand("encrypt", "Write an encrypted copy of a rule set"),
                          options);
}

int runEncrypt(const RuleSetCopyOptions &options, std::ostream &out, std::ostream &err) {
    return copyRuleSet(options, Conversion::Encrypt, out, err);
}

} // namespace Corvane::Cli
