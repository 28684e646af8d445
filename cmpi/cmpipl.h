/* The platform of the CMPI declarations: Linux with the GNU tool chain, 64-bit, little endian. A system's own header of
 * this name wants CMPI_PLATFORM_LINUX_GENERIC_GNU defined; this one takes it defined or not. */
#ifndef _CMPIPL_H_
#define _CMPIPL_H_

#if !defined(__linux__) || !defined(__LP64__)
#error "these CMPI declarations describe 64-bit Linux only"
#endif

#endif
