// The binary layout that a provider and an object manager share, byte by byte, on 64-bit Linux. A mismatch, of our
// declarations or of a system's own headers (hence the angle brackets), must fail the build rather than the object
// manager.
#include <cstddef>
#include <type_traits>

#include <cmpidt.h>
#include <cmpift.h>

#define SIZE(type, bytes) static_assert(sizeof(type) == (bytes) && std::is_trivial_v<type>, #type)
#define AT(type, member, offset) static_assert(offsetof(type, member) == (offset), #type "." #member)

SIZE(CMPIBoolean, 1);
SIZE(CMPIChar16, 2);
SIZE(CMPIUint8, 1);
SIZE(CMPIUint16, 2);
SIZE(CMPIUint32, 4);
SIZE(CMPIUint64, 8);
SIZE(CMPISint8, 1);
SIZE(CMPISint16, 2);
SIZE(CMPISint32, 4);
SIZE(CMPISint64, 8);
SIZE(CMPIReal32, 4);
SIZE(CMPIReal64, 8);
SIZE(CMPICount, 4);
SIZE(CMPIType, 2);
SIZE(CMPIValueState, 2);
SIZE(CMPIFlags, 4);
SIZE(CMPIrc, 4);
SIZE(CMPIErrorSeverity, 4);
SIZE(CMPIErrorProbableCause, 4);
SIZE(CMPIMsgFileHandle, 8);

SIZE(CMPIValuePtr, 16);
AT(CMPIValuePtr, ptr, 0);
AT(CMPIValuePtr, length, 8);
SIZE(CMPIValue, 16);
static_assert(alignof(CMPIValue) == 8);
SIZE(CMPIData, 24);
AT(CMPIData, type, 0);
AT(CMPIData, state, 2);
AT(CMPIData, value, 8);
SIZE(CMPIStatus, 16);
AT(CMPIStatus, rc, 0);
AT(CMPIStatus, msg, 8);

#define OBJECT(type)                                                                                                   \
    SIZE(type, 16);                                                                                                    \
    AT(type, hdl, 0);                                                                                                  \
    AT(type, ft, 8)
OBJECT(CMPIContext);
OBJECT(CMPIResult);
OBJECT(CMPIString);
OBJECT(CMPIArray);
OBJECT(CMPIEnumeration);
OBJECT(CMPIInstance);
OBJECT(CMPIObjectPath);
OBJECT(CMPIArgs);
OBJECT(CMPIDateTime);
OBJECT(CMPISelectExp);
OBJECT(CMPIInstanceMI);
OBJECT(CMPIMethodMI);

SIZE(CMPIBroker, 40);
AT(CMPIBroker, hdl, 0);
AT(CMPIBroker, bft, 8);
AT(CMPIBroker, eft, 16);
AT(CMPIBroker, xft, 24);
AT(CMPIBroker, mft, 32);

SIZE(CMPIBrokerFT, 160);
AT(CMPIBrokerFT, brokerCapabilities, 0);
AT(CMPIBrokerFT, brokerVersion, 4);
AT(CMPIBrokerFT, brokerName, 8);
AT(CMPIBrokerFT, prepareAttachThread, 16);
AT(CMPIBrokerFT, attachThread, 24);
AT(CMPIBrokerFT, detachThread, 32);
AT(CMPIBrokerFT, deliverIndication, 40);
AT(CMPIBrokerFT, enumerateInstanceNames, 48);
AT(CMPIBrokerFT, getInstance, 56);
AT(CMPIBrokerFT, createInstance, 64);
AT(CMPIBrokerFT, modifyInstance, 72);
AT(CMPIBrokerFT, deleteInstance, 80);
AT(CMPIBrokerFT, execQuery, 88);
AT(CMPIBrokerFT, enumerateInstances, 96);
AT(CMPIBrokerFT, associators, 104);
AT(CMPIBrokerFT, associatorNames, 112);
AT(CMPIBrokerFT, references, 120);
AT(CMPIBrokerFT, referenceNames, 128);
AT(CMPIBrokerFT, invokeMethod, 136);
AT(CMPIBrokerFT, setProperty, 144);
AT(CMPIBrokerFT, getProperty, 152);

SIZE(CMPIBrokerEncFT, 168);
AT(CMPIBrokerEncFT, ftVersion, 0);
AT(CMPIBrokerEncFT, newInstance, 8);
AT(CMPIBrokerEncFT, newObjectPath, 16);
AT(CMPIBrokerEncFT, newArgs, 24);
AT(CMPIBrokerEncFT, newString, 32);
AT(CMPIBrokerEncFT, newArray, 40);
AT(CMPIBrokerEncFT, newDateTime, 48);
AT(CMPIBrokerEncFT, newDateTimeFromBinary, 56);
AT(CMPIBrokerEncFT, newDateTimeFromChars, 64);
AT(CMPIBrokerEncFT, newSelectExp, 72);
AT(CMPIBrokerEncFT, classPathIsA, 80);
AT(CMPIBrokerEncFT, toString, 88);
AT(CMPIBrokerEncFT, isOfType, 96);
AT(CMPIBrokerEncFT, getType, 104);
AT(CMPIBrokerEncFT, getMessage, 112);
AT(CMPIBrokerEncFT, logMessage, 120);
AT(CMPIBrokerEncFT, trace, 128);
AT(CMPIBrokerEncFT, newCMPIError, 136);
AT(CMPIBrokerEncFT, openMessageFile, 144);
AT(CMPIBrokerEncFT, closeMessageFile, 152);
AT(CMPIBrokerEncFT, getMessage2, 160);

SIZE(CMPIBrokerExtFT, 168);
AT(CMPIBrokerExtFT, ftVersion, 0);
AT(CMPIBrokerExtFT, resolveFileName, 8);
AT(CMPIBrokerExtFT, newThread, 16);
AT(CMPIBrokerExtFT, joinThread, 24);
AT(CMPIBrokerExtFT, exitThread, 32);
AT(CMPIBrokerExtFT, cancelThread, 40);
AT(CMPIBrokerExtFT, threadSleep, 48);
AT(CMPIBrokerExtFT, threadOnce, 56);
AT(CMPIBrokerExtFT, createThreadKey, 64);
AT(CMPIBrokerExtFT, destroyThreadKey, 72);
AT(CMPIBrokerExtFT, getThreadSpecific, 80);
AT(CMPIBrokerExtFT, setThreadSpecific, 88);
AT(CMPIBrokerExtFT, newMutex, 96);
AT(CMPIBrokerExtFT, destroyMutex, 104);
AT(CMPIBrokerExtFT, lockMutex, 112);
AT(CMPIBrokerExtFT, unlockMutex, 120);
AT(CMPIBrokerExtFT, newCondition, 128);
AT(CMPIBrokerExtFT, destroyCondition, 136);
AT(CMPIBrokerExtFT, condWait, 144);
AT(CMPIBrokerExtFT, timedCondWait, 152);
AT(CMPIBrokerExtFT, signalCondition, 160);

static_assert(sizeof(CMPIBrokerMemFT) == 120); // its version is const: not trivial
AT(CMPIBrokerMemFT, ftVersion, 0);
AT(CMPIBrokerMemFT, mark, 8);
AT(CMPIBrokerMemFT, release, 16);
AT(CMPIBrokerMemFT, cmpiMalloc, 24);
AT(CMPIBrokerMemFT, cmpiCalloc, 32);
AT(CMPIBrokerMemFT, cmpiRealloc, 40);
AT(CMPIBrokerMemFT, cmpiStrDup, 48);
AT(CMPIBrokerMemFT, cmpiFree, 56);
AT(CMPIBrokerMemFT, freeInstance, 64);
AT(CMPIBrokerMemFT, freeObjectPath, 72);
AT(CMPIBrokerMemFT, freeArgs, 80);
AT(CMPIBrokerMemFT, freeString, 88);
AT(CMPIBrokerMemFT, freeArray, 96);
AT(CMPIBrokerMemFT, freeDateTime, 104);
AT(CMPIBrokerMemFT, freeSelectExp, 112);

SIZE(CMPIContextFT, 56);
AT(CMPIContextFT, ftVersion, 0);
AT(CMPIContextFT, release, 8);
AT(CMPIContextFT, clone, 16);
AT(CMPIContextFT, getEntry, 24);
AT(CMPIContextFT, getEntryAt, 32);
AT(CMPIContextFT, getEntryCount, 40);
AT(CMPIContextFT, addEntry, 48);

SIZE(CMPIResultFT, 64);
AT(CMPIResultFT, ftVersion, 0);
AT(CMPIResultFT, release, 8);
AT(CMPIResultFT, clone, 16);
AT(CMPIResultFT, returnData, 24);
AT(CMPIResultFT, returnInstance, 32);
AT(CMPIResultFT, returnObjectPath, 40);
AT(CMPIResultFT, returnDone, 48);
AT(CMPIResultFT, returnError, 56);

SIZE(CMPIStringFT, 32);
AT(CMPIStringFT, ftVersion, 0);
AT(CMPIStringFT, release, 8);
AT(CMPIStringFT, clone, 16);
AT(CMPIStringFT, getCharPtr, 24);

SIZE(CMPIArrayFT, 56);
AT(CMPIArrayFT, ftVersion, 0);
AT(CMPIArrayFT, release, 8);
AT(CMPIArrayFT, clone, 16);
AT(CMPIArrayFT, getSize, 24);
AT(CMPIArrayFT, getSimpleType, 32);
AT(CMPIArrayFT, getElementAt, 40);
AT(CMPIArrayFT, setElementAt, 48);

SIZE(CMPIEnumerationFT, 48);
AT(CMPIEnumerationFT, ftVersion, 0);
AT(CMPIEnumerationFT, release, 8);
AT(CMPIEnumerationFT, clone, 16);
AT(CMPIEnumerationFT, getNext, 24);
AT(CMPIEnumerationFT, hasNext, 32);
AT(CMPIEnumerationFT, toArray, 40);

SIZE(CMPIInstanceFT, 88);
AT(CMPIInstanceFT, ftVersion, 0);
AT(CMPIInstanceFT, release, 8);
AT(CMPIInstanceFT, clone, 16);
AT(CMPIInstanceFT, getProperty, 24);
AT(CMPIInstanceFT, getPropertyAt, 32);
AT(CMPIInstanceFT, getPropertyCount, 40);
AT(CMPIInstanceFT, setProperty, 48);
AT(CMPIInstanceFT, getObjectPath, 56);
AT(CMPIInstanceFT, setPropertyFilter, 64);
AT(CMPIInstanceFT, setObjectPath, 72);
AT(CMPIInstanceFT, setPropertyWithOrigin, 80);

SIZE(CMPIObjectPathFT, 160);
AT(CMPIObjectPathFT, ftVersion, 0);
AT(CMPIObjectPathFT, release, 8);
AT(CMPIObjectPathFT, clone, 16);
AT(CMPIObjectPathFT, setNameSpace, 24);
AT(CMPIObjectPathFT, getNameSpace, 32);
AT(CMPIObjectPathFT, setHostname, 40);
AT(CMPIObjectPathFT, getHostname, 48);
AT(CMPIObjectPathFT, setClassName, 56);
AT(CMPIObjectPathFT, getClassName, 64);
AT(CMPIObjectPathFT, addKey, 72);
AT(CMPIObjectPathFT, getKey, 80);
AT(CMPIObjectPathFT, getKeyAt, 88);
AT(CMPIObjectPathFT, getKeyCount, 96);
AT(CMPIObjectPathFT, setNameSpaceFromObjectPath, 104);
AT(CMPIObjectPathFT, setHostAndNameSpaceFromObjectPath, 112);
AT(CMPIObjectPathFT, getClassQualifier, 120);
AT(CMPIObjectPathFT, getPropertyQualifier, 128);
AT(CMPIObjectPathFT, getMethodQualifier, 136);
AT(CMPIObjectPathFT, getParameterQualifier, 144);
AT(CMPIObjectPathFT, toString, 152);

SIZE(CMPIArgsFT, 56);
AT(CMPIArgsFT, ftVersion, 0);
AT(CMPIArgsFT, release, 8);
AT(CMPIArgsFT, clone, 16);
AT(CMPIArgsFT, addArg, 24);
AT(CMPIArgsFT, getArg, 32);
AT(CMPIArgsFT, getArgAt, 40);
AT(CMPIArgsFT, getArgCount, 48);

SIZE(CMPIDateTimeFT, 48);
AT(CMPIDateTimeFT, ftVersion, 0);
AT(CMPIDateTimeFT, release, 8);
AT(CMPIDateTimeFT, clone, 16);
AT(CMPIDateTimeFT, getBinaryFormat, 24);
AT(CMPIDateTimeFT, getStringFormat, 32);
AT(CMPIDateTimeFT, isInterval, 40);

SIZE(CMPISelectExpFT, 64);
AT(CMPISelectExpFT, ftVersion, 0);
AT(CMPISelectExpFT, release, 8);
AT(CMPISelectExpFT, clone, 16);
AT(CMPISelectExpFT, evaluate, 24);
AT(CMPISelectExpFT, getString, 32);
AT(CMPISelectExpFT, getDOC, 40);
AT(CMPISelectExpFT, getCOD, 48);
AT(CMPISelectExpFT, evaluateUsingAccessor, 56);

SIZE(CMPIInstanceMIFT, 80);
AT(CMPIInstanceMIFT, ftVersion, 0);
AT(CMPIInstanceMIFT, miVersion, 4);
AT(CMPIInstanceMIFT, miName, 8);
AT(CMPIInstanceMIFT, cleanup, 16);
AT(CMPIInstanceMIFT, enumerateInstanceNames, 24);
AT(CMPIInstanceMIFT, enumerateInstances, 32);
AT(CMPIInstanceMIFT, getInstance, 40);
AT(CMPIInstanceMIFT, createInstance, 48);
AT(CMPIInstanceMIFT, modifyInstance, 56);
AT(CMPIInstanceMIFT, deleteInstance, 64);
AT(CMPIInstanceMIFT, execQuery, 72);

SIZE(CMPIMethodMIFT, 32);
AT(CMPIMethodMIFT, ftVersion, 0);
AT(CMPIMethodMIFT, miVersion, 4);
AT(CMPIMethodMIFT, miName, 8);
AT(CMPIMethodMIFT, cleanup, 16);
AT(CMPIMethodMIFT, invokeMethod, 24);
