#include "quillmere/Report.h"

#include "common/Bytes.h"
#include "quillmere/Lines.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <iomanip>
#include <optional>
#include <sstream>
#include <string_view>

namespace zeb::tolvo::desk
{

namespace
{

constexpr std::size_t kColumns = 79;

std::string TimeOfDay(std::chrono::system_clock::time_point now)
{
    const auto sinceEpoch = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch());
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    std::tm local{};
    localtime_r(&seconds, &local);
    std::ostringstream text;
    text << std::put_time(&local, "%H:%M:%S.") << std::setfill('0') << std::setw(3) << sinceEpoch.count() % 1000;
    return text.str();
}

/// @return nothing when `body` holds something else than printable ASCII and white space.
std::optional<std::string> Text(std::string_view body)
{
    constexpr std::string_view kSpaces = "\n\r\t";
    constexpr std::string_view kLetters = "nrt";
    std::string text;
    for (const char character : body)
    {
        const std::size_t space = kSpaces.find(character);
        if (space != std::string_view::npos)
            text.append("\\").append(1, kLetters[space]);
        else if (IsPrintable(character))
            text += character;
        else
            return std::nullopt;
    }
    return text;
}

/// `text` with spaces behind it up to a number of columns.
std::string Padded(std::string text, std::size_t columns)
{
    text.append(columns - std::min(Columns(text), columns), ' ');
    return text;
}

/// The beginning of a body: text in quotes, anything else as hexadecimal digits.
std::string Preview(std::string_view body, std::size_t columns)
{
    constexpr std::string_view kMore = "...";
    const std::string_view beginning = body.substr(0, columns);
    const std::optional<std::string> text = Text(beginning);
    std::string shown = text ? '"' + *text + '"' : "0x" + Hex(beginning);
    if (beginning.size() < body.size() || shown.size() > columns)
    {
        shown.resize(columns - kMore.size());
        shown += kMore;
    }
    return shown;
}

/// A line no longer than a terminal's: what goes beyond gives way to dots.
std::string Cut(std::string line)
{
    constexpr std::string_view kMore = "...";
    if (Columns(line) <= kColumns) return line;
    while (Columns(line) > kColumns - kMore.size()) line.pop_back();
    return line.append(kMore);
}

} // namespace

std::string ClientName(std::string_view client)
{
    constexpr std::size_t kMade = 5; // a zero byte and a number
    return client.size() == kMade && client.front() == '\0' ? Hex(client.substr(1)) : Escape(client);
}

std::string TraceLine(const Passage& passage, std::chrono::system_clock::time_point now)
{
    constexpr std::size_t kNameWidth = 16;
    constexpr std::size_t kPeerWidth = 12;
    constexpr int kSizeWidth = 8;
    constexpr int kTimeWidth = 12;
    constexpr std::size_t kLeastPreview = 16;

    std::ostringstream line;
    line << TimeOfDay(now) << ' ' << Padded(Escape(passage.name), kNameWidth);
    switch (passage.kind)
    {
    case Passage::Kind::Registered:
    case Passage::Kind::Loss:
        return {};
    case Passage::Kind::Registration:
        line << Padded(" registers", kPeerWidth);
        break;
    case Passage::Kind::Request:
        line << Padded(" <- " + ClientName(passage.client), kPeerWidth);
        break;
    case Passage::Kind::Reply:
        line << Padded(" -> " + ClientName(passage.client), kPeerWidth);
        break;
    }
    line << std::right << std::setw(kSizeWidth) << passage.body.size() << std::setw(kTimeWidth)
         << (passage.kind == Passage::Kind::Reply ? Milliseconds(passage.answerTime) + " ms" : "") << ' ';
    const std::size_t used = Columns(line.str());
    line << Preview(passage.body, std::max(kColumns - std::min(used, kColumns), kLeastPreview));
    return line.str();
}

std::string Table(const std::vector<ServerReport>& reports)
{
    using Row = std::array<std::string, 9>;
    constexpr std::size_t kAddress = 7; // names stand last: long ones then leave the numbers in their columns
    constexpr std::size_t kWidestAddress = 20;

    std::vector<Row> rows{
        {"passed", "answered", "dropped", "waiting", "lost", "median", "worst", "address", "identity"}};
    for (const ServerReport& report : reports)
    {
        rows.push_back({std::to_string(report.passed), std::to_string(report.answered), std::to_string(report.dropped),
                        std::to_string(report.waiting), std::to_string(report.lost), Milliseconds(report.median),
                        Milliseconds(report.worst), Escape(report.address), Escape(report.identity)});
    }

    std::array<std::size_t, std::tuple_size_v<Row>> widths{};
    for (const Row& row : rows)
    {
        std::transform(row.begin(), row.end(), widths.begin(), widths.begin(),
                       [](const std::string& cell, std::size_t width) { return std::max(Columns(cell), width); });
    }

    widths[kAddress] = std::min(widths[kAddress], kWidestAddress);
    widths.back() = 0; // nothing stands behind it
    std::string table;
    for (const Row& row : rows)
    {
        std::ostringstream line;
        for (std::size_t column = 0; column < row.size(); ++column)
        {
            line << (column == 0 ? "" : " ");
            if (column < kAddress)
                line << std::setw(static_cast<int>(widths[column])) << row[column];
            else
                line << Padded(row[column], widths[column]);
        }
        table += Cut(line.str()) + '\n';
    }
    return table;
}

} // namespace zeb::tolvo::desk
