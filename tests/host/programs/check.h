/* check.h - the checks of the host programs. */
#ifndef CHECK_H
#define CHECK_H

#include <stdio.h>
#include <stdlib.h>

#define CHECK(expression)                                                                                              \
    do {                                                                                                               \
        if (!(expression)) {                                                                                           \
            fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #expression);                            \
            exit(1);                                                                                                   \
        }                                                                                                              \
    } while (0)

#endif
