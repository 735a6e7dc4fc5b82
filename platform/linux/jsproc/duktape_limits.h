/* Put before Duktape's source: its own configuration, plus the checks that end a script whose time is over. */
#ifndef JX_DUKTAPE_LIMITS_H
#define JX_DUKTAPE_LIMITS_H

#define DUK_COMPILING_DUKTAPE /* as duktape.c itself does, before the configuration looks at it */
#include <duk_config.h>

/* True, and from then on always, when the script of the heap with this user data has used up its time. */
int jxDuktapeTimeIsOver(void* heapUserData);

/* How many steps a regular expression may take: about a tenth of a second's work, and none when the time is over. */
unsigned int jxDuktapeStepsLimit(void* heapUserData);

#define DUK_USE_INTERRUPT_COUNTER
#define DUK_USE_EXEC_TIMEOUT_CHECK(heapUserData) jxDuktapeTimeIsOver(heapUserData)

#endif
