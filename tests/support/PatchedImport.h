// Puts a function of the test's own in place of one that this program imports from Windows.
#pragma once

namespace support {

/// Replaces every import of `function` in this program, the code under test included, until it is destroyed. For
/// what Windows may do and Wine does not. One at a time for each function; no thread may be inside the replacement
/// when it is destroyed.
class PatchedImport
{
public:
    /// `replacement` must have the same type as the function. Fails the test when the program does not import it.
    PatchedImport(const char* function, void* replacement);
    ~PatchedImport();
    PatchedImport(const PatchedImport&) = delete;
    PatchedImport& operator=(const PatchedImport&) = delete;

    /// What stood there before.
    template <class Function>
    Function* Original() const
    {
        return reinterpret_cast<Function*>(m_original);
    }

private:
    void** m_entry = nullptr;
    void* m_original = nullptr;
};

} // namespace support
