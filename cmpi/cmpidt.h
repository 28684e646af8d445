/* CMPI 2.0 data types: scalars, the value union, data and status, type codes, states, return codes, context entries.
 *
 * All of it is layout that is shared with the object manager: nothing here may grow a constructor, a destructor, a
 * virtual member or an initialiser. cmpiLayout.cpp asserts every size and offset. */
#ifndef _CMPIDT_H_
#define _CMPIDT_H_

#include "cmpipl.h"

#define CMPIVersion100 100
#define CMPIVersion200 200
#ifndef CMPI_VERSION
#define CMPI_VERSION CMPIVersion200
#elif CMPI_VERSION != CMPIVersion200
#error "only version 2.0 of the interface is declared here"
#endif
#define CMPI_VER_100
#define CMPI_VER_200
#define CMPICurrentVersion CMPIVersion200

#ifdef __cplusplus
extern "C" {
#endif

typedef struct _CMPIBroker CMPIBroker;
typedef struct _CMPIBrokerFT CMPIBrokerFT;
typedef struct _CMPIBrokerEncFT CMPIBrokerEncFT;
typedef struct _CMPIBrokerExtFT CMPIBrokerExtFT;
typedef struct _CMPIBrokerMemFT CMPIBrokerMemFT;
typedef struct _CMPIContext CMPIContext;
typedef struct _CMPIContextFT CMPIContextFT;
typedef struct _CMPIResult CMPIResult;
typedef struct _CMPIResultFT CMPIResultFT;
typedef struct _CMPIString CMPIString;
typedef struct _CMPIStringFT CMPIStringFT;
typedef struct _CMPIArray CMPIArray;
typedef struct _CMPIArrayFT CMPIArrayFT;
typedef struct _CMPIEnumeration CMPIEnumeration;
typedef struct _CMPIEnumerationFT CMPIEnumerationFT;
typedef struct _CMPIInstance CMPIInstance;
typedef struct _CMPIInstanceFT CMPIInstanceFT;
typedef struct _CMPIObjectPath CMPIObjectPath;
typedef struct _CMPIObjectPathFT CMPIObjectPathFT;
typedef struct _CMPIArgs CMPIArgs;
typedef struct _CMPIArgsFT CMPIArgsFT;
typedef struct _CMPIDateTime CMPIDateTime;
typedef struct _CMPIDateTimeFT CMPIDateTimeFT;
typedef struct _CMPISelectExp CMPISelectExp;
typedef struct _CMPISelectExpFT CMPISelectExpFT;
typedef struct _CMPISelectCond CMPISelectCond; /* conditions and errors are only named, never looked into */
typedef struct _CMPIError CMPIError;
typedef struct _CMPIInstanceMI CMPIInstanceMI;
typedef struct _CMPIInstanceMIFT CMPIInstanceMIFT;
typedef struct _CMPIMethodMI CMPIMethodMI;
typedef struct _CMPIMethodMIFT CMPIMethodMIFT;

typedef unsigned char CMPIBoolean;
typedef unsigned short CMPIChar16;
typedef unsigned char CMPIUint8;
typedef unsigned short CMPIUint16;
typedef unsigned int CMPIUint32;
typedef unsigned long long CMPIUint64;
typedef signed char CMPISint8;
typedef short CMPISint16;
typedef int CMPISint32;
typedef long long CMPISint64;
typedef float CMPIReal32;
typedef double CMPIReal64;

typedef unsigned int CMPICount;
typedef unsigned short CMPIType;
typedef unsigned short CMPIValueState;
typedef unsigned int CMPIFlags;
typedef void *CMPIMsgFileHandle;
typedef void CMPIGcStat;

typedef struct _CMPIValuePtr {
    void *ptr;
    CMPICount length;
} CMPIValuePtr;

typedef union _CMPIValue {
    CMPIUint64 uint64;
    CMPIUint32 uint32;
    CMPIUint16 uint16;
    CMPIUint8 uint8;
    CMPISint64 sint64;
    CMPISint32 sint32;
    CMPISint16 sint16;
    CMPISint8 sint8;
    CMPIReal64 real64;
    CMPIReal32 real32;
    CMPIBoolean boolean;
    CMPIChar16 char16;
    CMPIInstance *inst;
    CMPIObjectPath *ref;
    CMPIArgs *args;
    CMPISelectExp *filter;
    CMPIEnumeration *Enum;
    CMPIArray *array;
    CMPIString *string;
    char *chars;
    CMPIDateTime *dateTime;
    CMPIValuePtr dataPtr;
    CMPISint8 Byte;
    CMPISint16 Short;
    CMPISint32 Int;
    CMPISint64 Long;
    CMPIReal32 Float;
    CMPIReal64 Double;
} CMPIValue;

typedef struct _CMPIData {
    CMPIType type;
    CMPIValueState state;
    CMPIValue value;
} CMPIData;

typedef CMPIData CMPIAccessor(const char *name, void *parm);

/* Type codes. An array's code is its element's code with the array flag; the value is then in member `array`. */
#define CMPI_null 0x0000
#define CMPI_boolean 0x0002
#define CMPI_char16 0x0003
#define CMPI_real32 0x0008
#define CMPI_real64 0x000C
#define CMPI_uint8 0x0080
#define CMPI_uint16 0x0090
#define CMPI_uint32 0x00A0
#define CMPI_uint64 0x00B0
#define CMPI_sint8 0x00C0
#define CMPI_sint16 0x00D0
#define CMPI_sint32 0x00E0
#define CMPI_sint64 0x00F0
#define CMPI_instance 0x1000
#define CMPI_ref 0x1100
#define CMPI_args 0x1200
#define CMPI_class 0x1300
#define CMPI_filter 0x1400
#define CMPI_enumeration 0x1500
#define CMPI_string 0x1600
#define CMPI_chars 0x1700 /* the value is the character pointer itself, not the address of a union that holds it */
#define CMPI_dateTime 0x1800
#define CMPI_ptr 0x1900
#define CMPI_charsptr 0x1A00 /* hosts keep the bare pointer: not to be used */

#define CMPI_ARRAY 0x2000
#define CMPI_booleanA 0x2002
#define CMPI_char16A 0x2003
#define CMPI_real32A 0x2008
#define CMPI_real64A 0x200C
#define CMPI_uint8A 0x2080
#define CMPI_uint16A 0x2090
#define CMPI_uint32A 0x20A0
#define CMPI_uint64A 0x20B0
#define CMPI_sint8A 0x20C0
#define CMPI_sint16A 0x20D0
#define CMPI_sint32A 0x20E0
#define CMPI_sint64A 0x20F0
#define CMPI_instanceA 0x3000
#define CMPI_refA 0x3100
#define CMPI_stringA 0x3600
#define CMPI_charsA 0x3700
#define CMPI_dateTimeA 0x3800
#define CMPI_charsptrA 0x3A00

/* Masks. They overlap (every integer code has the bit of CMPI_UINT): whole codes are safer to compare. */
#define CMPI_SIMPLE 0x0002
#define CMPI_REAL 0x0008
#define CMPI_UINT 0x0080
#define CMPI_SINT 0x00C0
#define CMPI_INTEGER 0x00C0
#define CMPI_ENC 0x1000

#define CMPI_keyInteger CMPI_sint64
#define CMPI_keyString CMPI_string
#define CMPI_keyBoolean CMPI_boolean
#define CMPI_keyRef CMPI_ref

/* Value states. */
#define CMPI_goodValue 0x0000
#define CMPI_nullValue 0x0100
#define CMPI_keyValue 0x0200
#define CMPI_notFound 0x0400
#define CMPI_badValue 0x8000

typedef enum _CMPIrc {
    CMPI_RC_OK = 0,
    CMPI_RC_ERR_FAILED = 1,
    CMPI_RC_ERR_ACCESS_DENIED = 2,
    CMPI_RC_ERR_INVALID_NAMESPACE = 3,
    CMPI_RC_ERR_INVALID_PARAMETER = 4,
    CMPI_RC_ERR_INVALID_CLASS = 5,
    CMPI_RC_ERR_NOT_FOUND = 6,
    CMPI_RC_ERR_NOT_SUPPORTED = 7,
    CMPI_RC_ERR_CLASS_HAS_CHILDREN = 8,
    CMPI_RC_ERR_CLASS_HAS_INSTANCES = 9,
    CMPI_RC_ERR_INVALID_SUPERCLASS = 10,
    CMPI_RC_ERR_ALREADY_EXISTS = 11,
    CMPI_RC_ERR_NO_SUCH_PROPERTY = 12,
    CMPI_RC_ERR_TYPE_MISMATCH = 13,
    CMPI_RC_ERR_QUERY_LANGUAGE_NOT_SUPPORTED = 14,
    CMPI_RC_ERR_INVALID_QUERY = 15,
    CMPI_RC_ERR_METHOD_NOT_AVAILABLE = 16,
    CMPI_RC_ERR_METHOD_NOT_FOUND = 17,
    CMPI_RC_DO_NOT_UNLOAD = 50, /* only from a clean-up: not now, ask again */
    CMPI_RC_NEVER_UNLOAD = 51,  /* only from a clean-up: not before the shutdown */
    CMPI_RC_ERR_INVALID_HANDLE = 60,
    CMPI_RC_ERR_INVALID_DATA_TYPE = 61,
    CMPI_RC_ERROR_SYSTEM = 100,
    CMPI_RC_ERROR = 200
} CMPIrc;

typedef struct _CMPIStatus {
    CMPIrc rc;
    CMPIString *msg; /* NULL: no message */
} CMPIStatus;

/* Flags of a client's request; they arrive in the context entry CMPIInvocationFlags. */
#define CMPI_FLAG_LocalOnly 1
#define CMPI_FLAG_DeepInheritance 2
#define CMPI_FLAG_IncludeQualifiers 4
#define CMPI_FLAG_IncludeClassOrigin 8

/* Names of context entries. */
#define CMPIInvocationFlags "CMPIInvocationFlags"
#define CMPIInitNameSpace "CMPIInitNameSpace"
#define CMPIPrincipal "CMPIPrincipal"
#define CMPIRole "CMPIRole"
#define CMPIAcceptLanguage "CMPIAcceptLanguage"
#define CMPIContentLanguage "CMPIContentLanguage"

/* Capability bits of a broker; test with (capabilities & mask) == mask. */
#define CMPI_MB_BasicRead 0x0001
#define CMPI_MB_BasicWrite 0x0003
#define CMPI_MB_InstanceManipulation 0x0007
#define CMPI_MB_AssociationTraversal 0x0009
#define CMPI_MB_QueryExecution 0x0011
#define CMPI_MB_QueryNormalization 0x0031
#define CMPI_MB_BasicQualifierSupport 0x0047
#define CMPI_MB_Indications 0x0081
#define CMPI_MB_OSEncapsulationSupport 0x0100

typedef enum _CMPISeverity {
    CMPI_SEV_ERROR = 1,
    CMPI_SEV_INFO = 2,
    CMPI_SEV_WARNING = 3,
    CMPI_DEV_DEBUG = 4 /* the interface spells it so */
} CMPISeverity;

typedef enum _CMPILevel { CMPI_LEV_INFO = 1, CMPI_LEV_WARNING = 2, CMPI_LEV_VERBOSE = 3 } CMPILevel;

/* Arguments of the optional error service; only their width matters here. */
typedef enum _CMPIErrorSeverity { CMPIErrorSeverity_Lowest = 0, CMPIErrorSeverity_Highest = 5 } CMPIErrorSeverity;
typedef enum _CMPIErrorProbableCause {
    CMPIErrorProbableCause_First = 0,
    CMPIErrorProbableCause_Last = 130
} CMPIErrorProbableCause;

#ifdef __cplusplus
}
#endif

#endif
