// SPDX-License-Identifier: MIT
// The stream "presence": what the table tells of the reports, as entries of the spool. The spool's writer
// calls it before each transaction, so that a report and what it brought are committed together, and a
// table that is restored from a snapshot and the reports behind it is as the last commit left it.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "presence/table.hpp"
#include "spool.hpp"

class presence_c {
  public:
    // The name of the reader of a daemon's life, by its row in the spool.
    using reader_name_t = std::function<std::string(std::int64_t boot)>;

    presence_c(const presence_rules_s& rules, reader_name_t readerName)
        : table(rules), nameOfReader(std::move(readerName)) {}

    // Puts behind each report what it brought, and at the end what the silence of a reader brought. Returns
    // the bytes of the new bodies. `now` as that of presence_table_c.
    std::size_t derive(std::vector<new_entry_s>* entries, std::int64_t now);

    std::string save() { return table.save(); }
    // From a snapshot; false, with an empty table, when it is not whole. What is in the spool behind it
    // is played again with replay(), reports and presence events in their order; resume() ends that.
    bool load(std::string_view snapshot, std::int64_t now);
    void replay(const entry_s& entry, std::int64_t now);
    void resume(const presence_rules_s& rules, std::int64_t now);

    // A life of a daemon that the spool has; the latest of a reader comes last. Behind load().
    void meet(std::int64_t boot) { readerOf(boot); }

    void setRules(const presence_rules_s& rules) { table.setRules(rules); }
    const presence_account_s& account() const { return table.account(); }

  private:
    std::size_t readerOf(std::int64_t boot);
    void takeReport(std::int64_t boot, std::int64_t takenAt, std::string_view body, std::int64_t now);
    new_entry_s entryOf(const presence_event_s& event, std::int64_t takenAt) const;

    presence_table_c table;
    reader_name_t nameOfReader;
    std::map<std::int64_t, std::size_t> readers;  // by the row of a life
    std::vector<std::int64_t> lives;              // the last row of each reader of the table
    std::vector<presence_event_s> events;         // of the present report
};
