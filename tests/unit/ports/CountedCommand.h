// A packet that tells when it is destroyed.
#pragma once

#include "ports/packet/CSerialPortCommand.h"

class CountedCommand : public CSerialPortCommand
{
public:
    /// `destroyed` is the test's, and must live as long as the command does.
    explicit CountedCommand(int& destroyed) : CSerialPortCommand(&Byte, 1, true, false), m_destroyed(destroyed) {}
    ~CountedCommand() override { ++m_destroyed; }

private:
    static constexpr std::uint8_t Byte = 'x';
    int& m_destroyed;
};
