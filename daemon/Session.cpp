#include "Session.h"

#include <atomic>
#include <exception>
#include <memory>
#include <new>
#include <string>

#include <sys/socket.h>

namespace Corvane::Milter {

namespace {

// libmilter's callbacks have no argument of ours before there is a session.
std::atomic<Shared *> s_shared{nullptr};
std::atomic<Answers> s_answers{Answers::All};

// What a server must let a filter do, and what it may let it do.
constexpr unsigned long kNeededActions = SMFIF_ADDHDRS | SMFIF_CHGHDRS;
constexpr unsigned long kWantedActions = kNeededActions | SMFIF_QUARANTINE;
constexpr unsigned long kUnwantedSteps = SMFIP_NOHELO | SMFIP_NOUNKNOWN | SMFIP_NODATA;
constexpr unsigned long kSilentSteps = SMFIP_NR_HDR | SMFIP_NR_EOH | SMFIP_NR_BODY;

struct Session {
    explicit Session(Shared &itsShared) : shared(itsShared) { count = ++shared.sessions; }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;
    ~Session() { --shared.sessions; }

    Shared &shared;
    unsigned int count = 0;
    // Whether the server waits for no answer to headers, their end, and the body.
    bool silent = false;
    bool canHold = false;
    Transaction::Blanks blanks = Transaction::Blanks::Cut;
    std::unique_ptr<Transaction> transaction;
};

Session *s_session(SMFICTX *context) {
    return static_cast<Session *>(smfi_getpriv(context));
}

// Runs a step of a session. What it throws becomes a refusal for now at the end of the message.
template <class Step>
sfsistat s_step(SMFICTX *context, Step step) {
    Session *session = s_session(context);
    if (session == nullptr || session->transaction == nullptr) {
        return SMFIS_TEMPFAIL;
    }
    try {
        step(*session->transaction);
    } catch (const std::exception &failure) {
        session->transaction->fail(failure.what());
    }
    return session->silent ? SMFIS_NOREPLY : SMFIS_CONTINUE;
}

sfsistat s_negotiate(SMFICTX *context, unsigned long actions, unsigned long steps,
                     unsigned long /*unused*/, unsigned long /*unused*/, unsigned long *wanted,
                     unsigned long *unwanted, unsigned long *third, unsigned long *fourth) {
    Shared &shared = *s_shared.load();
    if ((actions & kNeededActions) != kNeededActions) {
        shared.log.write(LogLine(LogLevel::Error, "refused")
                             .add("reason", "the mail server lets filters change no headers"));
        return SMFIS_REJECT;
    }
    std::unique_ptr<Session> session(new (std::nothrow) Session(shared));
    if (session == nullptr) {
        return SMFIS_REJECT;
    }
    const unsigned long silent = s_answers == Answers::Needed ? kSilentSteps : 0;
    *wanted = kWantedActions & actions;
    *unwanted = (kUnwantedSteps | SMFIP_HDR_LEADSPC | silent) & steps;
    *third = 0;
    *fourth = 0;
    session->silent = silent != 0 && (steps & silent) == silent;
    if (!session->silent) {
        *unwanted &= ~silent;
    }
    session->canHold = (actions & SMFIF_QUARANTINE) != 0;
    session->blanks =
        (steps & SMFIP_HDR_LEADSPC) != 0 ? Transaction::Blanks::Kept : Transaction::Blanks::Cut;
    if (smfi_setpriv(context, session.get()) == MI_SUCCESS) {
        session.release();
    }
    return SMFIS_CONTINUE;
}

sfsistat s_connect(SMFICTX *context, char * /*name*/, struct sockaddr *from) {
    Session *session = s_session(context);
    if (session == nullptr) {
        return SMFIS_TEMPFAIL;
    }
    Shared &shared = session->shared;
    if (session->count > shared.live.current()->config.bounds.sessions) {
        shared.metrics.refused();
        shared.log.write(LogLine(LogLevel::Error, "refused")
                             .add("reason", "limits.sessions is reached")
                             .add("sessions", std::uint64_t{session->count}));
        return SMFIS_TEMPFAIL;
    }
    try {
        session->transaction =
            std::make_unique<Transaction>(shared, addressOf(from), session->blanks);
    } catch (const std::bad_alloc &) {
        return SMFIS_TEMPFAIL;
    }
    return SMFIS_CONTINUE;
}

sfsistat s_sender(SMFICTX *context, char **arguments) {
    const Session *session = s_session(context);
    if (session == nullptr || session->shared.closing) {
        return SMFIS_TEMPFAIL;
    }
    std::string type = "{auth_type}";
    std::string name = "{auth_authen}";
    const bool isKnown = smfi_getsymval(context, type.data()) != nullptr ||
                         smfi_getsymval(context, name.data()) != nullptr;
    const sfsistat answer = s_step(context, [&](Transaction &transaction) {
        transaction.begin(arguments[0], isKnown ? Transaction::Client::Authenticated
                                                : Transaction::Client::Unknown);
    });
    return answer == SMFIS_NOREPLY ? SMFIS_CONTINUE : answer;
}

sfsistat s_recipient(SMFICTX *context, char **arguments) {
    const sfsistat answer =
        s_step(context, [&](Transaction &transaction) { transaction.recipient(arguments[0]); });
    return answer == SMFIS_NOREPLY ? SMFIS_CONTINUE : answer;
}

sfsistat s_header(SMFICTX *context, char *name, char *value) {
    return s_step(context, [&](Transaction &transaction) { transaction.header(name, value); });
}

sfsistat s_endOfHeaders(SMFICTX *context) {
    return s_step(context, [](Transaction &transaction) { transaction.endOfHeaders(); });
}

sfsistat s_body(SMFICTX *context, unsigned char *bytes, size_t length) {
    return s_step(context, [&](Transaction &transaction) {
        transaction.body({reinterpret_cast<const char *>(bytes), length});
    });
}

bool s_change(SMFICTX *context, Outcome &outcome) {
    for (auto &[name, index] : outcome.removals) {
        if (smfi_chgheader(context, name.data(), index, nullptr) != MI_SUCCESS) {
            return false;
        }
    }
    for (auto &[name, value] : outcome.additions) {
        if (smfi_insheader(context, 0, name.data(), value.data()) != MI_SUCCESS) {
            return false;
        }
    }
    return outcome.hold.empty() || smfi_quarantine(context, outcome.hold.data()) == MI_SUCCESS;
}

sfsistat s_refuse(SMFICTX *context, Outcome &outcome) {
    std::string code = "550";
    std::string extended = "5.7.1";
    smfi_setreply(context, code.data(), extended.data(), outcome.text.data());
    return SMFIS_REJECT;
}

sfsistat s_answer(SMFICTX *context, Session &session) {
    std::string symbol = "i";
    const char *id = smfi_getsymval(context, symbol.data());
    Outcome outcome = session.transaction->finish(id == nullptr ? "" : id);
    switch (outcome.answer) {
    case Outcome::Answer::TempFail:
        return SMFIS_TEMPFAIL;
    case Outcome::Answer::Reject:
        return s_refuse(context, outcome);
    case Outcome::Answer::Discard:
        return SMFIS_DISCARD;
    default:
        break;
    }
    if (s_change(context, outcome)) {
        return SMFIS_ACCEPT;
    }
    const bool cannotHold = !outcome.hold.empty() && !session.canHold;
    session.shared.metrics.putOff();
    session.shared.log.write(
        LogLine(LogLevel::Error, "put_off")
            .add("id", id == nullptr ? "" : id)
            .add("reason", cannotHold ? "the mail server lets filters hold no message; choose "
                                        "another action than quarantine"
                                      : "the mail server could not be told of the headers"));
    return SMFIS_TEMPFAIL;
}

sfsistat s_endOfMessage(SMFICTX *context) {
    Session *session = s_session(context);
    if (session == nullptr || session->transaction == nullptr) {
        return SMFIS_TEMPFAIL;
    }
    try {
        return s_answer(context, *session);
    } catch (const std::exception &failure) {
        session->transaction->abort();
        return SMFIS_TEMPFAIL;
    }
}

sfsistat s_abort(SMFICTX *context) {
    Session *session = s_session(context);
    if (session != nullptr && session->transaction != nullptr) {
        session->transaction->abort();
    }
    return SMFIS_CONTINUE;
}

sfsistat s_close(SMFICTX *context) {
    const std::unique_ptr<Session> session(s_session(context));
    smfi_setpriv(context, nullptr);
    return SMFIS_CONTINUE;
}

} // namespace

smfiDesc sessionCallbacks(Shared &shared, Answers answers) {
    s_shared = &shared;
    s_answers = answers;
    static std::string s_name = "corvane-milter";
    smfiDesc callbacks{};
    callbacks.xxfi_name = s_name.data();
    callbacks.xxfi_version = SMFI_VERSION;
    callbacks.xxfi_flags = kWantedActions;
    callbacks.xxfi_connect = s_connect;
    callbacks.xxfi_envfrom = s_sender;
    callbacks.xxfi_envrcpt = s_recipient;
    callbacks.xxfi_header = s_header;
    callbacks.xxfi_eoh = s_endOfHeaders;
    callbacks.xxfi_body = s_body;
    callbacks.xxfi_eom = s_endOfMessage;
    callbacks.xxfi_abort = s_abort;
    callbacks.xxfi_close = s_close;
    callbacks.xxfi_negotiate = s_negotiate;
    return callbacks;
}

} // namespace Corvane::Milter
