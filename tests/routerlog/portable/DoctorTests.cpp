// What doctor says of a PC, one planted fault each. Which of them are found on a real PC is tested on Windows.
#include "tools/RouterLog/doctor/Diagnosis.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace routerlog;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr const char* Version = "1.0.0.0";
constexpr const char* Path = "C:\\Router\\MorvanePortRouter.exe";

Registration Registered(bool perUser = false, bool view32 = false, const std::string& server = Path)
{
    return {perUser, view32, server, true, Version, RouterClassId, true, true};
}

class Doctor : public testing::Test
{
protected:
    Doctor()
    {
        facts.registrations = {Registered()};
        facts.settingsExist = facts.settingsReadable = facts.settingsWritable = true;
        facts.folder = "C:\\Router\\";
        facts.freeBytes = 1ULL << 40;
        facts.driverPresent = true;
        facts.instruments = {{0x1E4F, 0x0100, true}};
        facts.elevated = true;
    }
    std::vector<std::string> Keys() const
    {
        std::vector<std::string> keys;
        for (const Finding& each : Diagnose(facts, Version)) {
            keys.push_back(each.key);
            EXPECT_FALSE(each.fault.empty() || each.remedy.empty()) << each.key;
        }
        return keys;
    }
    std::string Text() const { return DiagnosisText(facts, Diagnose(facts, Version)); }

    PcFacts facts;
};

TEST_F(Doctor, SaysOneLineAboutAHealthyPc)
{
    EXPECT_THAT(Keys(), IsEmpty());
    EXPECT_EQ(
        Text(),
        "Healthy: the router is registered, its settings and log can be written, the instrument is there.\n");
}

TEST_F(Doctor, TakesARegisteredPairOfViewsForHealthy)
{
    facts.registrations = {Registered(), Registered(false, true), Registered(true)};
    EXPECT_THAT(Keys(), IsEmpty());
}

TEST_F(Doctor, FindsAMissingRegistration)
{
    facts.registrations = {Registered(false, false, ""), Registered(true, false, "")};
    EXPECT_THAT(Keys(), ElementsAre("not-registered"));
}

TEST_F(Doctor, FindsTwoRegisteredRouters)
{
    facts.registrations = {Registered(), Registered(true, false, "D:\\Old\\MorvanePortRouter.exe")};
    EXPECT_THAT(Keys(), ElementsAre("registered-twice"));
    EXPECT_THAT(Text(), HasSubstr("D:\\Old\\MorvanePortRouter.exe"));
}

TEST_F(Doctor, FindsARegistrationThat64BitProgramsDoNotSee)
{
    facts.registrations = {Registered(false, true)};
    EXPECT_THAT(Keys(), ElementsAre("only-32-bit-view"));
}

TEST_F(Doctor, FindsARegistrationThatAdministratorsDoNotSee)
{
    facts.registrations = {Registered(true)};
    EXPECT_THAT(Keys(), ElementsAre("only-this-user"));
}

TEST_F(Doctor, FindsARegisteredProgramThatIsMissing)
{
    facts.registrations[0].serverExists = false;
    EXPECT_THAT(Keys(), ElementsAre("server-missing"));
}

TEST_F(Doctor, FindsARegisteredProgramOfAnotherName)
{
    facts.registrations[0].server = "C:\\Router\\Router2.exe";
    EXPECT_THAT(Keys(), ElementsAre("server-renamed"));
}

TEST_F(Doctor, FindsAnotherVersion)
{
    facts.registrations[0].version = "0.9.0.0";
    EXPECT_THAT(Keys(), ElementsAre("version-differs"));
}

TEST_F(Doctor, FindsAWrongProgId)
{
    facts.registrations[0].progIdClass = "{00000000-0000-0000-0000-000000000000}";
    EXPECT_THAT(Keys(), ElementsAre("progid-wrong"));
}

TEST_F(Doctor, FindsAMissingTypeLibrary)
{
    facts.registrations[0].typeLibrary = false;
    EXPECT_THAT(Keys(), ElementsAre("type-library-missing"));
}

TEST_F(Doctor, FindsAMissingAppId)
{
    facts.registrations[0].appId = false;
    EXPECT_THAT(Keys(), ElementsAre("appid-missing"));
}

TEST_F(Doctor, FindsARunningRouterThatIsNotTheRegisteredOne)
{
    facts.routers = {{"MorvanePortRouter.exe", "D:\\Old\\MorvanePortRouter.exe", 7}};
    EXPECT_THAT(Keys(), ElementsAre("other-router"));
    facts.routers[0].path = "c:\\router\\morvaneportrouter.EXE";
    EXPECT_THAT(Keys(), IsEmpty());
}

TEST_F(Doctor, FindsTwoRunningRouters)
{
    facts.routers = {{"MorvanePortRouter.exe", Path, 7}, {"MorvanePortRouter.exe", Path, 8}};
    EXPECT_THAT(Keys(), ElementsAre("two-routers"));
}

TEST_F(Doctor, FindsAMutexThatNoRouterHolds)
{
    facts.mutexHeld = true;
    EXPECT_THAT(Keys(), ElementsAre("mutex-held"));
}

TEST_F(Doctor, FindsAHostProgramInOtherLetters)
{
    facts.hosts = {{"Lumivista.exe", "", 7}, {"lumivista.exe", "", 8}};
    EXPECT_THAT(Keys(), ElementsAre("host-name"));
    EXPECT_THAT(Text(), HasSubstr("\"lumivista.exe\""));
}

TEST_F(Doctor, FindsARouterThatHangs)
{
    facts.activation = Activation{Activation::Result::Hung, 0};
    EXPECT_THAT(Keys(), ElementsAre("hangs"));
}

TEST_F(Doctor, FindsAFailedActivationWithItsCode)
{
    facts.activation = Activation{Activation::Result::Failed, 0x80040154};
    EXPECT_THAT(Keys(), ElementsAre("activation-failed"));
    EXPECT_THAT(Text(), HasSubstr("0x80040154"));
}

TEST_F(Doctor, FindsMissingRightsOnTheSettings)
{
    facts.settingsWritable = false;
    EXPECT_THAT(Keys(), ElementsAre("settings-rights"));
    EXPECT_THAT(Text(), HasSubstr("takes them as they are"));
    facts.settingsReadable = false;
    EXPECT_THAT(Keys(), ElementsAre("settings-rights"));
    EXPECT_THAT(Text(), HasSubstr("runs with defaults"));
}

TEST_F(Doctor, FindsLogLimitsThatDoHarm)
{
    facts.logLimit = 0;
    EXPECT_THAT(Keys(), ElementsAre("limit-zero"));
    facts.logLimit = 4096;
    EXPECT_THAT(Keys(), ElementsAre("limit-huge"));
    EXPECT_THAT(Text(), HasSubstr("4096 MB, which counts as 0"));
    facts.logLimit.reset();
    facts.logLimitHasWrongType = true;
    EXPECT_THAT(Keys(), ElementsAre("limit-type"));
}

TEST_F(Doctor, AcceptsTheLargestLogLimitThatTheInstallerSets)
{
    facts.logLimit = 4095;
    EXPECT_THAT(Keys(), IsEmpty());
}

TEST_F(Doctor, FindsADeviceWhoseNameIsNoNumber)
{
    facts.devices = {{"-1", "a", 0}, {"0", "b", 0}, {"3", "c", 0}, {"Reader", "d", 0}};
    EXPECT_THAT(Keys(), ElementsAre("device-name"));
}

TEST_F(Doctor, FindsMissingRightsOnTheLog)
{
    facts.logFolderWritable = false;
    EXPECT_THAT(Keys(), ElementsAre("log-rights"));
}

TEST_F(Doctor, FindsAProtectedLogAndOneThatIsHeld)
{
    facts.logReadOnly = true;
    EXPECT_THAT(Keys(), ElementsAre("log-read-only"));
    facts.logReadOnly = false;
    facts.logHeld = true;
    EXPECT_THAT(Keys(), ElementsAre("log-held"));
}

TEST_F(Doctor, FindsAFullDisk)
{
    facts.freeBytes = 5 << 20;
    EXPECT_THAT(Keys(), ElementsAre("disk-full"));
    EXPECT_THAT(Text(), HasSubstr("Only 5 MB are free"));
}

TEST_F(Doctor, FindsAnEmptyFirmwareImage)
{
    facts.emptyFirmware = {"C:\\Router\\Firmware\\Firmware_256.Out"};
    EXPECT_THAT(Keys(), ElementsAre("firmware-empty"));
}

TEST_F(Doctor, FindsAMissingDriverAndAMissingInstrument)
{
    facts.driverPresent = false;
    facts.instruments.clear();
    EXPECT_THAT(Keys(), ElementsAre("no-driver"));
    facts.driverPresent = true;
    EXPECT_THAT(Keys(), ElementsAre("no-instrument"));
}

TEST_F(Doctor, FindsAnInstrumentThatTheRouterDoesNotAccept)
{
    facts.instruments = {{0x1E4F, 0x0600, true}};
    EXPECT_THAT(Keys(), ElementsAre("product-unknown"));
    facts.products = {0x0600};
    EXPECT_THAT(Keys(), IsEmpty());
}

TEST_F(Doctor, FindsAMissingSimulatorAndThenAsksForNoInstrument)
{
    facts.simulate = 1;
    facts.instruments.clear();
    EXPECT_THAT(Keys(), ElementsAre("no-simulator"));
    facts.simulatorPipe = true;
    EXPECT_THAT(Keys(), IsEmpty());
}

TEST_F(Doctor, FindsATakenPipeNameUnlessTheRouterRuns)
{
    facts.takenPipes = {"Reader"};
    EXPECT_THAT(Keys(), ElementsAre("pipe-taken"));
    facts.routers = {{"MorvanePortRouter.exe", Path, 7}};
    EXPECT_THAT(Keys(), IsEmpty());
}

} // namespace
