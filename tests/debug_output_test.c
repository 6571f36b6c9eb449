/* Where the library's debug output goes, seen from a host process: this
 * program stands in for the journal and syslog by defining sd_journal_sendv,
 * openlog and syslog itself (an executable's definitions come before those
 * of the shared libraries), then makes the library log with the debug
 * channel open. Exits non-zero on the first failed check. */
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/uio.h>
#include <syslog.h>

#include "pixmill/pixmill.h"
#include "pixmill/pixmill_ext.h"

#define MAX_RECORDS 64
#define RECORD_CHARS 512

static int g_failures = 0;
#define CHECK(cond)                                                                  \
    do {                                                                             \
        if (!(cond)) {                                                               \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
            ++g_failures;                                                            \
        }                                                                            \
    } while (0)

/* What reached each channel. */
static int g_journalAnswer = 0; /* what the stand-in journal returns */
static int g_journalCalls = 0; /* messages the journal took */
static int g_journalAttempts = 0;
static char g_journalMessages[MAX_RECORDS][RECORD_CHARS];
static int g_journalBadFields = 0; /* identifier, priority or facility wrong or missing */
static int g_syslogCalls = 0;
static char g_syslogTexts[MAX_RECORDS][RECORD_CHARS];
static int g_syslogPriorities[MAX_RECORDS];
static int g_openlogCalls = 0;
static char g_ident[64];

static int field_is(const struct iovec* v, const char* text) {
    return v->iov_len == strlen(text) && memcmp(v->iov_base, text, v->iov_len) == 0;
}

int sd_journal_sendv(const struct iovec* iov, int n) {
    int i, ident = 0, priority = 0, facility = 0, message = -1;
    for (i = 0; i < n; ++i) {
        ident += field_is(&iov[i], "SYSLOG_IDENTIFIER=pixmill");
        priority += field_is(&iov[i], "PRIORITY=7");
        facility += field_is(&iov[i], "SYSLOG_FACILITY=1");
        if (iov[i].iov_len >= 8 && memcmp(iov[i].iov_base, "MESSAGE=", 8) == 0) message = i;
    }
    ++g_journalAttempts;
    if (ident != 1 || priority != 1 || facility != 1 || message < 0) ++g_journalBadFields;
    if (g_journalAnswer >= 0 && g_journalCalls < MAX_RECORDS && message >= 0) {
        size_t len = iov[message].iov_len - 8;
        if (len >= RECORD_CHARS) len = RECORD_CHARS - 1;
        memcpy(g_journalMessages[g_journalCalls], (const char*)iov[message].iov_base + 8, len);
        g_journalMessages[g_journalCalls][len] = '\0';
    }
    if (g_journalAnswer >= 0) ++g_journalCalls;
    return g_journalAnswer;
}

void openlog(const char* ident, int option, int facility) {
    (void)option;
    (void)facility;
    ++g_openlogCalls;
    snprintf(g_ident, sizeof g_ident, "%s", ident ? ident : "");
}

static void record_syslog(int priority, const char* format, va_list args) {
    if (g_syslogCalls < MAX_RECORDS) {
        vsnprintf(g_syslogTexts[g_syslogCalls], RECORD_CHARS, format, args);
        g_syslogPriorities[g_syslogCalls] = priority;
    }
    ++g_syslogCalls;
}

void syslog(int priority, const char* format, ...) {
    va_list args;
    va_start(args, format);
    record_syslog(priority, format, args);
    va_end(args);
}

/* The name a fortified build calls instead of syslog. */
void __syslog_chk(int priority, int flag, const char* format, ...) {
    va_list args;
    (void)flag;
    va_start(args, format);
    record_syslog(priority, format, args);
    va_end(args);
}

/* One exported call that logs its entry and exit at level 2. */
static void make_the_library_log(void) {
    CHECK(GetFilterList(NULL, 0) > 0);
}

int main(void) {
    int journalLines, i;

    /* The host names itself first; the library must leave that alone. The
     * first call's start-up lines are left out of what is compared. */
    openlog("hosttool", LOG_PID, LOG_LOCAL3);
    PixmillSetLogLevels(6, 6, 6);
    make_the_library_log();
    PixmillSetLogLevels(6, 6, 1);

    /* A journal that takes the messages: every line goes there, each
     * carrying the identifier, and none to syslog. */
    g_journalAnswer = 0;
    make_the_library_log();
    journalLines = g_journalCalls;
    CHECK(journalLines >= 2);
    CHECK(g_syslogCalls == 0);
    CHECK(g_journalBadFields == 0);

    /* No journal running (the library gets -ENOENT): the same lines go to
     * syslog, facility user, priority debug, with the identifier first. */
    g_journalAnswer = -ENOENT;
    g_journalAttempts = 0;
    make_the_library_log();
    CHECK(g_journalAttempts == journalLines);
    CHECK(g_journalBadFields == 0);
    CHECK(g_syslogCalls == journalLines);
    for (i = 0; i < g_syslogCalls && i < journalLines && i < MAX_RECORDS; ++i) {
        CHECK(strncmp(g_syslogTexts[i], "pixmill: ", 9) == 0);
        CHECK(strcmp(g_syslogTexts[i] + 9, g_journalMessages[i]) == 0);
        CHECK(g_syslogPriorities[i] == (LOG_USER | LOG_DEBUG));
    }

    /* Debug output closed: nothing reaches either channel. */
    PixmillSetLogLevels(6, 6, 6);
    g_journalAnswer = 0;
    g_journalAttempts = 0;
    g_syslogCalls = 0;
    make_the_library_log();
    CHECK(g_journalAttempts == 0 && g_syslogCalls == 0);

    CHECK(g_openlogCalls == 1);
    CHECK(strcmp(g_ident, "hosttool") == 0);
    if (g_failures) fprintf(stderr, "%d check(s) failed\n", g_failures);
    return g_failures ? 1 : 0;
}
