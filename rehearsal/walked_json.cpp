// SPDX-License-Identifier: MIT
#include "rehearsal/walked_json.hpp"

namespace hostadm::rehearsal {

using Json = nlohmann::ordered_json;

namespace {

constexpr const char *outcomes[] = {"passed", "failed", "skipped"};

StageResult::Outcome outcome_of(const std::string &word) {
    return static_cast<StageResult::Outcome>(std::find(std::begin(outcomes), std::end(outcomes), word) -
                                             std::begin(outcomes));
}

server::Stage stage_of(const std::string &word) {
    for (int stage = 0; stage <= static_cast<int>(server::Stage::reboot); ++stage)
        if (word == name_of(static_cast<server::Stage>(stage)))
            return static_cast<server::Stage>(stage);
    return server::Stage::address;
}

Json json_of(const server::Finding &finding) {
    return {{"check", finding.check},
            {"severity", name_of(finding.severity)},
            {"stage", name_of(finding.stage)},
            {"client", finding.client},
            {"where", finding.where},
            {"what", finding.what},
            {"why", finding.why},
            {"repair", finding.repair}};
}

server::Finding finding_of(const Json &json) {
    return {.check = json["check"],
            .severity = json["severity"] == name_of(server::Severity::error) ? server::Severity::error
                                                                             : server::Severity::warning,
            .stage = stage_of(json["stage"]),
            .client = json["client"],
            .where = json["where"],
            .what = json["what"],
            .why = json["why"],
            .repair = json["repair"]};
}

} // namespace

Json json_of(const Walked &walked) {
    Json json = {{"stages", Json::array()},
                 {"findings", Json::array()},
                 {"exchanges", Json::array()},
                 {"not_tried", walked.not_tried},
                 {"seen", walked.seen}};
    for (const StageResult &stage : walked.stages)
        json["stages"].push_back({{"name", stage.name},
                                  {"stage", name_of(stage.stage)},
                                  {"result", outcomes[static_cast<int>(stage.outcome)]},
                                  {"milliseconds", stage.milliseconds},
                                  {"detail", stage.detail}});
    for (const server::Finding &finding : walked.findings)
        json["findings"].push_back(json_of(finding));
    for (const Exchange &exchange : walked.exchanges)
        json["exchanges"].push_back({{"to", exchange.to},
                                     {"question", exchange.question},
                                     {"answer", exchange.answer},
                                     {"answered", exchange.answered}});
    return json;
}

Walked walked_of(const Json &json) {
    Walked walked;
    for (const Json &stage : json["stages"])
        walked.stages.push_back({.outcome = outcome_of(stage["result"]),
                                 .stage = stage_of(stage["stage"]),
                                 .name = stage["name"],
                                 .detail = stage["detail"],
                                 .milliseconds = stage["milliseconds"]});
    for (const Json &finding : json["findings"])
        walked.findings.push_back(finding_of(finding));
    for (const Json &exchange : json["exchanges"])
        walked.exchanges.push_back(
            {exchange["to"], exchange["question"], exchange["answer"], exchange["answered"]});
    walked.not_tried = json["not_tried"].get<std::vector<std::string>>();
    walked.seen = json["seen"].get<std::map<std::string, std::string>>();
    return walked;
}

Json json_of(const Rehearsed &rehearsed) {
    Json json = {{"client", rehearsed.client.name},       {"address", rehearsed.client.address},
                 {"ethernet", rehearsed.client.ethernet}, {"interface", rehearsed.interface},
                 {"passed", rehearsed.passed()},          {"milliseconds", rehearsed.milliseconds}};
    Json walked = json_of(rehearsed.walked);
    walked.erase("seen");
    json.update(walked);
    return json;
}

} // namespace hostadm::rehearsal
