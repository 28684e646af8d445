/* Operating-system side of the CMPI declarations: how entry points are exported and the opaque types of the broker's
 * thread services. */
#ifndef _CMPIOS_H_
#define _CMPIOS_H_

#include <stdlib.h>

#include "cmpipl.h"

#define CMPI_EXPORT __attribute__((visibility("default")))
#ifdef __cplusplus
#define CMPI_EXTERN_C extern "C" CMPI_EXPORT
#else
#define CMPI_EXTERN_C CMPI_EXPORT
#endif

#define CMPI_THREAD_TYPE void *
#define CMPI_THREAD_RETURN void *
#define CMPI_THREAD_CDECL
#define CMPI_MUTEX_TYPE void *
#define CMPI_COND_TYPE void *
#define CMPI_THREAD_KEY_TYPE unsigned long int /* some hosts write only 4 bytes of it */

struct timespec;

#endif
