// A filter that does nothing: what mail.py compares corvane-milter with.
//
//     empty-milter SOCKET      unix:PATH or inet:PORT@HOST
//
// It takes the same steps of a message and adds one header, so that the rest is scoring.

#include <cstdio>
#include <cstdlib>

#include <libmilter/mfapi.h>
#include <sys/stat.h>

namespace {

sfsistat s_sender(SMFICTX * /*context*/, char ** /*words*/) {
    return SMFIS_CONTINUE;
}

sfsistat s_header(SMFICTX * /*context*/, char * /*name*/, char * /*value*/) {
    return SMFIS_CONTINUE;
}

sfsistat s_endOfHeaders(SMFICTX * /*context*/) {
    return SMFIS_CONTINUE;
}

sfsistat s_body(SMFICTX * /*context*/, unsigned char * /*bytes*/, size_t /*size*/) {
    return SMFIS_CONTINUE;
}

sfsistat s_endOfMessage(SMFICTX *context) {
    char name[] = "X-Empty";
    char value[] = "nothing was done";
    return smfi_insheader(context, 0, name, value) == MI_SUCCESS ? SMFIS_ACCEPT : SMFIS_TEMPFAIL;
}

sfsistat s_negotiate(SMFICTX * /*context*/, unsigned long /*actions*/, unsigned long steps,
                     unsigned long /*unused*/, unsigned long /*unused*/, unsigned long *wanted,
                     unsigned long *unwanted, unsigned long *third, unsigned long *fourth) {
    // As in daemon/Session.cpp.
    constexpr unsigned long kUnwanted =
        SMFIP_NOHELO | SMFIP_NOUNKNOWN | SMFIP_NODATA | SMFIP_HDR_LEADSPC;
    *wanted = SMFIF_ADDHDRS;
    *unwanted = kUnwanted & steps;
    *third = 0;
    *fourth = 0;
    return SMFIS_CONTINUE;
}

} // namespace

int main(int argc, char **argv) {
    constexpr mode_t kUmask = 0007;
    if (argc != 2) {
        std::fprintf(stderr, "usage: empty-milter SOCKET\n");
        return EXIT_FAILURE;
    }
    umask(kUmask);
    char name[] = "empty-milter";
    smfiDesc filter{};
    filter.xxfi_name = name;
    filter.xxfi_version = SMFI_VERSION;
    filter.xxfi_flags = SMFIF_ADDHDRS;
    filter.xxfi_envfrom = s_sender;
    filter.xxfi_envrcpt = s_sender;
    filter.xxfi_header = s_header;
    filter.xxfi_eoh = s_endOfHeaders;
    filter.xxfi_body = s_body;
    filter.xxfi_eom = s_endOfMessage;
    filter.xxfi_negotiate = s_negotiate;
    if (smfi_register(filter) != MI_SUCCESS || smfi_setconn(argv[1]) != MI_SUCCESS) {
        std::fprintf(stderr, "empty-milter: cannot listen on %s\n", argv[1]);
        return EXIT_FAILURE;
    }
    return smfi_main() == MI_SUCCESS ? EXIT_SUCCESS : EXIT_FAILURE;
}
