/* What the tests know about their gain component: its private properties,
   its parameter and the descriptions listed by its bundle. */
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
    /* Number of reset calls received (UInt32). */
    kTestGainProperty_ResetCount = 0x10002,

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

#endif /* TESTS_PLATFORM_AUDIOUNIT_TESTGAINUNIT_H */
