/* What the tests know about their test component: its private properties,
   the call record it keeps and the descriptions listed by its bundle. */
#ifndef TESTS_PLATFORM_AUDIOUNIT_TESTGAINUNIT_H
#define TESTS_PLATFORM_AUDIOUNIT_TESTGAINUNIT_H

#include <MacTypes.h>

enum
{
    /* AudioComponentDescription the unit finds for itself through the
       runtime's exported functions. */
    kTestGainProperty_Description = 0x10000,
    /* The instance storage the runtime reports for the unit (a pointer). */
    kTestGainProperty_Storage = 0x10001,
    /* The last call the unit received before this read (TestGainCall). */
    kTestGainProperty_LastCall = 0x10002,

    kTestGainParam_Gain = 0,
    kTestGainVersion = 0x00010002,

    kTestGainManufacturer = 0x56747374,  // 'Vtst'
    kTestGainSubtype = 0x6761696E,       // 'gain': factory and entry function
    kTestGainFactoryOnly = 0x67666163,   // 'gfac'
    kTestGainEntryOnly = 0x67656E74,     // 'gent'
    kTestGainFailing = 0x6766616C,       // 'gfal': refuses to open
    kTestGainMissingSymbol = 0x676D6973, // 'gmis': names a missing factory
    kTestGainNoRecord = 0x676E756C       // 'gnul': the factory returns no record
};

/* One audio-unit call as the unit received it: the selector and the
   arguments after the instance, each in a 64-bit slot (a pointer fills its
   slot, a 32-bit value takes the low 4 bytes, unused slots are zero). */
typedef struct TestGainCall
{
    SInt32 mWhat;
    UInt64 mArgs[5];
} TestGainCall;

#endif /* TESTS_PLATFORM_AUDIOUNIT_TESTGAINUNIT_H */
