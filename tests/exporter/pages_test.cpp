#include "exporter/pages.h"

#include <gtest/gtest.h>

namespace ivra::bsp::exporter {
namespace {

board_t board_without_document(const std::string& name, absence_t absence, const std::string& error = "")
{
    board_t board;
    board.name = name;
    board.absence = absence;
    board.error = error;
    return board;
}

TEST(exporter_pages, say_why_a_board_could_not_be_read)
{
    snapshot_t snapshot;
    snapshot.is_listed = true;
    snapshot.host = "h";
    snapshot.version = "1.2";
    snapshot.platform = "system";
    snapshot.boards = {board_without_document("slow", absence_t::late),
                       board_without_document("stuck", absence_t::held, "of another time"),
                       board_without_document("<broken>", absence_t::failed, "it ended")};
    EXPECT_EQ(make_document(snapshot),
              R"({"format":1,"program":"ivra-bsp-readings","version":"1.2","time":"1970-01-01T00:00:00Z","host":"h",)"
              R"("platform":"system","health":"unknown","findings":[],"board_count":3,"boards":[)"
              "\n"
              R"({"name":"slow","state":"failed","error":"not read in time","health":"unknown","findings":[]},)"
              "\n"
              R"({"name":"stuck","state":"failed","error":"an earlier collection still waits for it, or did so a )"
              R"(moment ago","health":"unknown","findings":[]},)"
              "\n"
              R"({"name":"<broken>","state":"failed","error":"it ended","health":"unknown","findings":[]}]})"
              "\n");
}

} // namespace
} // namespace ivra::bsp::exporter
