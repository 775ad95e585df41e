/* Layouts and constants as the C compiler sees them (see HeadersAsC.c). */
#ifndef TESTS_PLATFORM_AUDIOUNIT_HEADERSASC_H
#define TESTS_PLATFORM_AUDIOUNIT_HEADERSASC_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The index-th size or offset of the table in HeadersAsC.c; 0 past its end. */
size_t HeadersAsC_Layout(unsigned index);

/* The index-th constant of the table in HeadersAsC.c; 0 past its end. */
unsigned long HeadersAsC_Constant(unsigned index);

#ifdef __cplusplus
}
#endif

#endif /* TESTS_PLATFORM_AUDIOUNIT_HEADERSASC_H */
