/* One attribute of an application on a pen: the 260-byte record in which the bundle's manifest keeps it and in which
   the pen library takes it. The layout is the pen library's and the same on every machine. */
#ifndef QUARVEL_PLATFORM_PENLETATTRIBUTE_H
#define QUARVEL_PLATFORM_PENLETATTRIBUTE_H

#include <stdint.h>

typedef struct PenletAttribute {
  int32_t id;      /* attribute number */
  char value[256]; /* NUL-terminated text */
} PenletAttribute;

#endif
