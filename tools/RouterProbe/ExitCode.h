// How the probe ends.
#pragma once

enum class ExitCode {
    AllGood = 0,
    Unexpected = 1,
    Usage = 2,
    NotRegistered = 3,
    NoRouter = 4,
    NeverServed = 5,
    PipeBusy = 6,
    ReplyLate = 7,
    WrongReply = 8,
    PipeBroke = 9,
    FileUnreadable = 10,
    RouterStays = 11,
    RouterFailed = 12,
};
