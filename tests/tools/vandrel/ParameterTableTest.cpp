#include "ParameterTable.h"
#include "ToolError.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace {

ParameterTable table()
{
    return ParameterTable({
        {0, "Dry out", kAudioUnitParameterUnit_Decibels, -80.0f, 12.0f, -80.0f, {}},
        {2,
         "Effect",
         kAudioUnitParameterUnit_Indexed,
         0.0f,
         2.0f,
         0.0f,
         {"Flanger", "Phaser", "Wah-wah"}},
        {3, "Modulation rate", kAudioUnitParameterUnit_Hertz, 0.001f, 20.0f, 10.0f, {}},
    });
}

std::string usageErrorOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (const ToolError& error) {
        EXPECT_EQ(error.status(), ExitStatus::kUsage);
        return error.what();
    }
    ADD_FAILURE() << "accepted";
    return "";
}

TEST(ParameterTableTest, NamesMatchAsPeopleTypeThemOrByNumber)
{
    const ParameterTable parameters = table();
    for (const char* name : {"Modulation rate", "modulation rate", "MODULATION-RATE",
                             "modulation_rate", "ModulationRate", "3"})
        EXPECT_EQ(parameters.find(name).id, 3u) << name;
    const std::string message = usageErrorOf([&] { parameters.find("Modulation"); });
    EXPECT_NE(message.find("'Modulation'"), std::string::npos) << message;
    EXPECT_NE(message.find("Dry out, Effect, Modulation rate"), std::string::npos)
        << "lists the names: " << message;
    usageErrorOf([&] { parameters.find("7"); });
}

TEST(ParameterTableTest, ValuesAreNumbersOrValueNames)
{
    const ParameterTable parameters = table();
    EXPECT_EQ(ParameterTable::parseValue(parameters.find("dry out"), "-6.5"), -6.5f);
    EXPECT_EQ(ParameterTable::parseValue(parameters.find("effect"), "phaser"), 1.0f);
    EXPECT_EQ(ParameterTable::parseValue(parameters.find("effect"), "wah wah"), 2.0f);
    EXPECT_EQ(ParameterTable::parseValue(parameters.find("effect"), "1"), 1.0f);
    const std::string message =
        usageErrorOf([&] { ParameterTable::parseValue(parameters.find("effect"), "chorus"); });
    EXPECT_NE(message.find("'Flanger'"), std::string::npos) << "offers the names: " << message;
    usageErrorOf([&] { ParameterTable::parseValue(parameters.find("dry out"), "-6dB"); });
}

TEST(ParameterTableTest, ValuesOutsideTheRangeAreWarnedAboutNotRefused)
{
    const ParameterTable parameters = table();
    const ParameterDescription& rate = parameters.find("modulation rate");
    EXPECT_EQ(ParameterTable::rangeWarning(rate, 20.0f), "");
    EXPECT_EQ(ParameterTable::rangeWarning(rate, rate.minValue), "");
    const std::string warning = ParameterTable::rangeWarning(rate, 50.0f);
    EXPECT_NE(warning.find("Modulation rate 50 is outside its range 0.001 to 20 Hz"),
              std::string::npos)
        << warning;
    EXPECT_NE(ParameterTable::rangeWarning(rate, 0.0f), "");
}

} // namespace
