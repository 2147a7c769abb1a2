/*
 * wlog_clock.h: the clock the file appender reads (internal to the library).
 *
 * The file appender takes "now" from time() once per write. Tests that drive period
 * switching without sleeping install their own clock here; production code never calls
 * wlogfile_set_clock_i and keeps time().
 *
 * The clock is one process-wide function pointer, read without locks: install it before
 * any appender is used and restore it (pass NULL) before the test ends.
 */
#ifndef WLOG_SRC_WLOG_CLOCK_H
#define WLOG_SRC_WLOG_CLOCK_H

#include <time.h>

/* A clock in the shape of time(): returns the current time and stores it when t is not null. */
typedef time_t (*WLOGFILECLOCK)(time_t* t);

/* Installs clock as the file appender's time source; NULL restores time(). */
void wlogfile_set_clock_i(WLOGFILECLOCK clock);

/* Runs the find-latest step of wlogfile_init on an appender state (nothing is opened). */
int wlogfile_find_latest_i(struct tagWLogFile* f);

#endif /* WLOG_SRC_WLOG_CLOCK_H */
