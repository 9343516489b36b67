// The Python module corvane: the library's front door for scripts.

#include <chrono>
#include <cmath>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <pybind11/chrono.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "corvane/Engine.h"
#include "corvane/RuleSet.h"

namespace py = pybind11;

namespace {

// Names and texts are bytes that need not be UTF-8: what is not comes as Python has it in the names
// of files, and os.fsencode() gives it back.
py::str s_text(std::string_view bytes) {
    PyObject *text = PyUnicode_DecodeUTF8(bytes.data(), static_cast<Py_ssize_t>(bytes.size()),
                                          "surrogateescape");
    if (text == nullptr) {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::str>(text);
}

template <class Value>
py::tuple s_texts(const std::vector<Value> &values) {
    py::tuple texts(values.size());
    for (std::size_t each = 0; each < values.size(); ++each) {
        texts[each] = s_text(values[each]);
    }
    return texts;
}

template <class Value>
py::tuple s_tuple(const std::vector<Value> &values) {
    py::tuple found(values.size());
    for (std::size_t each = 0; each < values.size(); ++each) {
        found[each] = values[each];
    }
    return found;
}

corvane::ScanOptions s_options(float threshold, bool stop, unsigned int percent,
                               const std::optional<std::string> &sender, double budget) {
    constexpr unsigned int kMostPercent = 100;
    if (percent > kMostPercent) {
        throw py::value_error("percent is to be from 0 to 100");
    }
    if (!(budget >= 0.0) || std::isinf(budget)) {
        throw py::value_error("budget is to be a number of seconds; 0 is no bound");
    }
    corvane::ScanOptions options;
    options.threshold = threshold;
    options.stop = stop;
    options.percent = percent;
    options.sender = sender;
    options.budget =
        std::chrono::ceil<std::chrono::nanoseconds>(std::chrono::duration<double>(budget));
    return options;
}

// A view of a bytes object, which the caller's argument keeps alive.
std::string_view s_view(const py::bytes &bytes) {
    return bytes;
}

// A member that is a text, and one that is a plain value.
template <class Object>
auto s_textOf(std::string Object::*member) {
    return [member](const Object &object) { return s_text(object.*member); };
}

void s_bindRules(py::module_ &module) {
    using corvane::Rule;
    py::class_<Rule>(module, "Rule")
        .def_property_readonly("name", s_textOf(&Rule::name))
        .def_property_readonly("kind", [](const Rule &rule) { return s_text(kindName(rule.kind)); })
        .def_property_readonly("languages",
                               [](const Rule &rule) { return s_texts(rule.languages); })
        .def_readonly("score", &Rule::score)
        .def_readonly("active", &Rule::active)
        .def_property_readonly("description", s_textOf(&Rule::description))
        .def_property_readonly("file", s_textOf(&Rule::file))
        .def_readonly("line", &Rule::line);
}

void s_bindVerdict(py::module_ &module) {
    using corvane::Hit;
    using corvane::Verdict;
    py::class_<Hit>(module, "Hit")
        .def_property_readonly("name", s_textOf(&Hit::name))
        .def_property_readonly("kind", [](const Hit &hit) { return s_text(kindName(hit.kind)); })
        .def_readonly("score", &Hit::score)
        .def_property_readonly("description", s_textOf(&Hit::description))
        .def_property_readonly("file", s_textOf(&Hit::file))
        .def_readonly("line", &Hit::line)
        .def("__repr__", [](const Hit &hit) {
            return py::str("<corvane.Hit {} {}>").format(s_text(hit.name), hit.score);
        });
    py::class_<Verdict>(module, "Verdict")
        .def_property_readonly("score", &Verdict::score)
        .def_property_readonly("over", &Verdict::over)
        .def_property_readonly("stopped", &Verdict::stopped)
        .def_property_readonly("language",
                               [](const Verdict &verdict) { return s_text(verdict.language()); })
        .def_property_readonly("hits",
                               [](const Verdict &verdict) { return s_tuple(verdict.hits()); })
        .def_property_readonly("limits",
                               [](const Verdict &verdict) { return s_texts(verdict.limits()); })
        .def_property_readonly("step_limited", &Verdict::stepLimited)
        .def("__repr__", [](const Verdict &verdict) {
            return py::str("<corvane.Verdict {}{}, {} hits>")
                .format(verdict.score(), verdict.over() ? ", over" : "", verdict.hits().size());
        });
}

void s_bindTexts(py::module_ &module) {
    using corvane::ExplainedText;
    using corvane::MetaStep;
    using corvane::NearestTry;
    py::class_<ExplainedText>(module, "ExplainedText")
        .def_property_readonly("source",
                               [](const ExplainedText &text) { return s_text(text.source); })
        .def_readonly("number", &ExplainedText::number)
        .def_readonly("piece", &ExplainedText::piece)
        .def_property_readonly("header", s_textOf(&ExplainedText::header))
        .def_property_readonly("form", [](const ExplainedText &text) { return s_text(text.form); })
        .def_property_readonly("uri_source", s_textOf(&ExplainedText::uriSource))
        .def_readonly("offset", &ExplainedText::offset)
        .def_property_readonly("text",
                               [](const ExplainedText &text) { return py::bytes(text.text); })
        .def_property_readonly("range", [](const ExplainedText &text) -> py::object {
            return text.hasRange ? py::object(py::make_tuple(text.start, text.end)) : py::none();
        });
    py::class_<NearestTry>(module, "NearestTry")
        .def_readonly("text", &NearestTry::text)
        .def_property_readonly("pattern",
                               [](const NearestTry &each) { return py::bytes(each.pattern); })
        .def_readonly("item", &NearestTry::item)
        .def_readonly("item_length", &NearestTry::itemLength)
        .def_readonly("is_complete", &NearestTry::isComplete);
    py::class_<MetaStep>(module, "MetaStep")
        .def_readonly("depth", &MetaStep::depth)
        .def_property_readonly("operation", s_textOf(&MetaStep::operation))
        .def_property_readonly("operand", s_textOf(&MetaStep::operand))
        .def_readonly("value", &MetaStep::value);
}

void s_bindExplanation(py::module_ &module) {
    using corvane::Explanation;
    using corvane::RuleExplanation;
    py::class_<RuleExplanation>(module, "RuleExplanation")
        .def_property_readonly("name", s_textOf(&RuleExplanation::name))
        .def_property_readonly(
            "reason", [](const RuleExplanation &each) { return s_text(reasonName(each.reason)); })
        .def_property_readonly("detail", s_textOf(&RuleExplanation::detail))
        .def_readonly("rule", &RuleExplanation::rule)
        .def_readonly("where", &RuleExplanation::where)
        .def_readonly("nearest", &RuleExplanation::nearest)
        .def_property_readonly("steps",
                               [](const RuleExplanation &each) { return s_tuple(each.steps); })
        .def_readonly("total", &RuleExplanation::total);
    py::class_<Explanation>(module, "Explanation")
        .def_readonly("verdict", &Explanation::verdict)
        .def_property_readonly("language_reason",
                               [](const Explanation &why) { return s_text(why.languageReason); })
        .def_property_readonly("tripped",
                               [](const Explanation &why) { return s_tuple(why.tripped); })
        .def_property_readonly("untripped",
                               [](const Explanation &why) { return s_tuple(why.untripped); });
}

// Other threads of Python's run meanwhile.
corvane::RuleSet s_load(const std::vector<std::string> &directories) {
    const py::gil_scoped_release released;
    return corvane::RuleSet::load(directories);
}

std::string s_path(const py::handle &path) {
    const py::object encoded = py::module_::import("os").attr("fsencode")(path);
    return encoded.cast<std::string>();
}

corvane::RuleSet s_loadPaths(const py::object &paths) {
    std::vector<std::string> directories;
    if (py::isinstance<py::list>(paths) || py::isinstance<py::tuple>(paths)) {
        for (const py::handle each : paths) {
            directories.push_back(s_path(each));
        }
    } else {
        directories.push_back(s_path(paths));
    }
    return s_load(directories);
}

corvane::Verdict s_scan(const corvane::RuleSet &rules, const py::bytes &message, float threshold,
                        bool stop, unsigned int percent, const std::optional<std::string> &sender,
                        double budget) {
    const corvane::ScanOptions options = s_options(threshold, stop, percent, sender, budget);
    const std::string_view bytes = s_view(message);
    const py::gil_scoped_release released;
    return rules.scan(bytes, options);
}

corvane::Explanation s_explain(const corvane::RuleSet &rules, const py::bytes &message,
                               const std::vector<std::string> &names, float threshold, bool stop,
                               unsigned int percent, const std::optional<std::string> &sender,
                               double budget) {
    const corvane::ScanOptions options = s_options(threshold, stop, percent, sender, budget);
    const std::string_view bytes = s_view(message);
    const py::gil_scoped_release released;
    return rules.explain(bytes, options, names);
}

void s_bindRuleSet(py::module_ &module) {
    using corvane::RuleSet;
    constexpr float kThreshold = 5.0F;
    py::class_<RuleSet>(module, "RuleSet")
        .def(py::init(&s_loadPaths), py::arg("path"))
        .def_property_readonly("generation",
                               [](const RuleSet &rules) { return s_text(rules.generation()); })
        .def_property_readonly("version",
                               [](const RuleSet &rules) { return s_text(rules.version()); })
        .def_property_readonly("rules", [](const RuleSet &rules) { return s_tuple(rules.rules()); })
        .def_property_readonly("problems",
                               [](const RuleSet &rules) {
                                   std::vector<std::string> texts;
                                   for (const corvane::Problem &problem : rules.problems()) {
                                       texts.push_back(toString(problem));
                                   }
                                   return s_texts(texts);
                               })
        .def("__len__", &RuleSet::size)
        .def("scan", &s_scan, py::arg("message"), py::kw_only(), py::arg("threshold") = kThreshold,
             py::arg("stop") = false, py::arg("percent") = 0U, py::arg("sender") = py::none(),
             py::arg("budget") = 0.0)
        .def("explain", &s_explain, py::arg("message"),
             py::arg("names") = std::vector<std::string>(), py::kw_only(),
             py::arg("threshold") = kThreshold, py::arg("stop") = false, py::arg("percent") = 0U,
             py::arg("sender") = py::none(), py::arg("budget") = 0.0);
}

} // namespace

PYBIND11_MODULE(corvane, module) {
    module.doc() = "Scores e-mail messages against heuristic rules.";
    py::register_exception<corvane::LoadError>(module, "LoadError", PyExc_ValueError);
    module.def("engine", [] { return s_text(corvane::engine()); });
    s_bindRules(module);
    s_bindVerdict(module);
    s_bindTexts(module);
    s_bindExplanation(module);
    s_bindRuleSet(module);
}
