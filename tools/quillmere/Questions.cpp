#include "quillmere/Questions.h"

#include "quillmere/Lines.h"
#include "quillmere/Report.h"

#include <nlohmann/json.hpp>

#include <chrono>

namespace zeb::tolvo::desk
{

namespace
{

std::string Json(const std::vector<ServerReport>& reports)
{
    using Milliseconds = std::chrono::duration<double, std::milli>;
    using Seconds = std::chrono::duration<double>;
    nlohmann::ordered_json services = nlohmann::ordered_json::array();
    for (const ServerReport& report : reports)
    {
        services.push_back({{"address", report.address},
                            {"identity", report.identity},
                            {"passed", report.passed},
                            {"answered", report.answered},
                            {"dropped", report.dropped},
                            {"waiting", report.waiting},
                            {"lost", report.lost},
                            {"median_ms", Milliseconds(report.median).count()},
                            {"worst_ms", Milliseconds(report.worst).count()},
                            {"registered_s", Seconds(report.sinceRegistered).count()}});
    }
    using Handler = nlohmann::ordered_json::error_handler_t;
    return services.dump(2, ' ', false, Handler::replace) + '\n'; // an identity may hold any bytes
}

} // namespace

std::string AnswerQuestion(std::string_view question, const std::vector<ServerReport>& reports)
{
    const std::string_view words = question.substr(0, question.find_last_not_of('\n') + 1);
    if (words == "services") return Table(reports);
    if (words == "services json") return Json(reports);
    return "unknown request " + Quote(words) + "; known are: services, services json\n";
}

} // namespace zeb::tolvo::desk
