#pragma once

#include <cstddef>
#include <string>

namespace zeb::tolvo::desk
{

/// One line on the terminal of standard error that overwrites itself. Nothing where standard error is no terminal.
class Progress
{
public:
    /// @param isWanted false shows nothing, terminal or not.
    explicit Progress(bool isWanted);
    ~Progress();

    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Replaces the line, cut to the terminal's width and to 80 columns.
    void Show(std::string text);

    /// Leaves the line empty, the cursor at its beginning.
    void Clear();

private:
    bool mIsShown;
    std::size_t mLength = 0; // of the line that stands there
};

} // namespace zeb::tolvo::desk
