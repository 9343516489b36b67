#include "support/ManPages.h"

#include <algorithm>
#include <sstream>
#include <vector>

namespace Corvane {
namespace {

// Text that no line of begins with what a macro begins with, a sentence a line.
std::string plain(const std::string &text) {
    std::string lines;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char each = text[at];
        if (lines.empty() || lines.back() == '\n') {
            lines += each == '.' || each == '\'' ? "\\&" : "";
        }
        lines += each == '\\' ? "\\e" : std::string(1, each);
        if (each == '.' && at + 1 < text.size() && text[at + 1] == ' ') {
            lines += '\n';
            ++at;
        }
    }
    const bool isEnded = lines.empty() || lines.back() == '.';
    return lines + (isEnded ? "\n" : ".\n");
}

std::vector<const CLI::Option *> optionsOf(CLI::App &app) {
    std::vector<const CLI::Option *> found;
    for (const CLI::Option *option : app.get_options()) {
        found.push_back(option);
    }
    for (CLI::App *group : app.get_subcommands([](CLI::App *) { return true; })) {
        if (group->get_name().empty()) {
            for (const CLI::Option *option : group->get_options()) {
                if (option != group->get_help_ptr()) {
                    found.push_back(option);
                }
            }
        }
    }
    return found;
}

std::string flagsOf(const CLI::Option &option) {
    std::string flags;
    for (const std::string &name : option.get_snames()) {
        flags += (flags.empty() ? "Fl " : " , Fl ") + name;
    }
    for (const std::string &name : option.get_lnames()) {
        flags += (flags.empty() ? "Fl -" : " , Fl -") + name;
    }
    return flags;
}

std::string pageOf(CLI::App &app, const std::string &path) {
    std::string dashed = path;
    std::replace(dashed.begin(), dashed.end(), ' ', '-');
    std::string title = dashed;
    std::transform(title.begin(), title.end(), title.begin(),
                   [](unsigned char each) { return static_cast<char>(std::toupper(each)); });
    std::ostringstream page;
    page << ".\\\" Made from what " << path << " --help says; ManPageTest says how.\n"
         << ".Dd November 24, 2026\n.Dt " << title << " 1\n.Os\n.Sh NAME\n.Nm " << dashed
         << "\n.Nd " << app.get_description() << "\n.Sh SYNOPSIS\n.Nm " << path
         << "\n.Op options\n";
    std::string options;
    for (const CLI::Option *option : optionsOf(app)) {
        const std::string name = option->get_name(true);
        if (option->get_positional()) {
            const bool isMany = option->get_items_expected_max() > 1;
            page << (option->get_required() ? ".Ar " : ".Op Ar ") << name
                 << (isMany ? " ...\n" : "\n");
            options += ".It Ar " + name + '\n' + plain(option->get_description());
        } else {
            const bool isFlag = option->get_items_expected_max() == 0;
            options += ".It " + flagsOf(*option) +
                       (isFlag ? "" : " Ar " + option->get_type_name()) + '\n' +
                       plain(option->get_description()) +
                       (isFlag || option->get_default_str().empty()
                            ? ""
                            : "Usually " + option->get_default_str() + ".\n");
        }
    }
    page << ".Sh DESCRIPTION\n" << plain(app.get_description());
    page << ".Bl -tag -width Ds\n" << options << ".El\n";
    std::string above;
    for (CLI::App *each : app.get_subcommands([](CLI::App *) { return true; })) {
        if (!each->get_name().empty()) {
            above += ".It Cm " + each->get_name() + '\n' + plain(each->get_description());
        }
    }
    if (!above.empty()) {
        page << "Its subcommands:\n.Bl -tag -width Ds\n" << above << ".El\n";
    }
    const std::string footer = app.get_footer();
    const std::string start = "Exit status: ";
    const std::size_t found = footer.find(start);
    if (found != std::string::npos) {
        page << (found > 0 ? plain(footer.substr(0, footer.find('\n'))) : "") << ".Sh EXIT STATUS\n"
             << plain(footer.substr(found + start.size(),
                                    footer.find_last_not_of('\n') + 1 - found - start.size()));
    }
    page << ".Sh SEE ALSO\n.Xr corvane 1\n";
    return page.str();
}

void add(CLI::App &app, const std::string &path, std::map<std::string, std::string> &pages) {
    for (CLI::App *each : app.get_subcommands([](CLI::App *) { return true; })) {
        if (each->get_name().empty()) {
            continue;
        }
        const std::string below = path + ' ' + each->get_name();
        std::string name = below + ".1";
        std::replace(name.begin(), name.end(), ' ', '-');
        pages[name] = pageOf(*each, below);
        add(*each, below, pages);
    }
}

} // namespace

std::map<std::string, std::string> manPagesOf(CLI::App &command) {
    std::map<std::string, std::string> pages;
    add(command, "corvane", pages);
    return pages;
}

} // namespace Corvane
