#include "host/CommandLine.h"

#include <gtest/gtest.h>

namespace {

using enum CommandLineAction;

TEST(CommandLine, NoCommandLineRunsTheServer)
{
    EXPECT_EQ(ParseCommandLine(nullptr), RunServer);
    EXPECT_EQ(ParseCommandLine(L""), RunServer);
}

TEST(CommandLine, BothIntroducersAreTaken)
{
    EXPECT_EQ(ParseCommandLine(L"-RegServer"), RegServer);
    EXPECT_EQ(ParseCommandLine(L"/RegServer"), RegServer);
}

TEST(CommandLine, EverySwitchIsKnownInAnyCase)
{
    EXPECT_EQ(ParseCommandLine(L"-regserver"), RegServer);
    EXPECT_EQ(ParseCommandLine(L"/UNREGSERVER"), UnregServer);
    EXPECT_EQ(ParseCommandLine(L"-regServerPerUser"), RegServerPerUser);
    EXPECT_EQ(ParseCommandLine(L"/unregserverperuser"), UnregServerPerUser);
}

TEST(CommandLine, ASwitchWithoutAnIntroducerIsAnotherWord)
{
    EXPECT_EQ(ParseCommandLine(L"RegServer"), RunServer);
}

TEST(CommandLine, TheSwitchOfAnActivationRunsTheServer)
{
    EXPECT_EQ(ParseCommandLine(L"-Embedding"), RunServer);
    EXPECT_EQ(ParseCommandLine(L"/Automation -Embedding"), RunServer);
}

TEST(CommandLine, OtherWordsAreSkippedAndTheFirstRecognisedSwitchDecides)
{
    EXPECT_EQ(ParseCommandLine(L"quiet -verbose /UnregServer -RegServer"), UnregServer);
    EXPECT_EQ(ParseCommandLine(L"-Embedding -RegServer"), RegServer);
}

TEST(CommandLine, AWordThatOnlyBeginsLikeASwitchIsNone)
{
    EXPECT_EQ(ParseCommandLine(L"-RegServerX"), RunServer);
    EXPECT_EQ(ParseCommandLine(L"-RegServ"), RunServer);
    EXPECT_EQ(ParseCommandLine(L"-RegServer:now"), RunServer);
}

TEST(CommandLine, AWordEndsAtABlankOrATab)
{
    EXPECT_EQ(ParseCommandLine(L"-RegServer now"), RegServer);
    EXPECT_EQ(ParseCommandLine(L"-RegServer\tnow"), RegServer);
    EXPECT_EQ(ParseCommandLine(L"  -RegServer  "), RegServer);
}

TEST(CommandLine, ABlankAfterTheIntroducerMakesNoSwitch)
{
    EXPECT_EQ(ParseCommandLine(L"- RegServer"), RunServer);
}

TEST(CommandLine, ADoubledIntroducerStillIntroduces)
{
    EXPECT_EQ(ParseCommandLine(L"--RegServer"), RegServer);
    EXPECT_EQ(ParseCommandLine(L"-/RegServer"), RegServer);
}

} // namespace
