#include "src/board/EngineParameters.h"

#include "common/Feed.h"
#include "public/log/LogLine.h"
#include "src/board/BoardTable.h"

void WriteEngineParameters(const CDrvRegEnyx& board, const U50ConfigInfo& config) {
    for (const FeedTraits& feed : FEEDS) {
        board.WriteRegister(feed.registers.maxInstNo, static_cast<uint32_t>(config.maxInstNo.*feed.maxInstNo));
    }
    board.WriteRegister(reg::LAST_TICK_CHANNEL, config.last_tick_channel);
    VEXA_LOG_AS("_VexaSubDmaUp", LOG_INFO,
                "shfe2ps_max_inst_no[%d] shfe4ps_max_inst_no[%d] ine2ps_max_inst_no[%d] ine4ps_max_inst_no[%d] "
                "lastTickChannel[%u]",
                config.maxInstNo.shfe2ps_max_inst_no, config.maxInstNo.shfe4ps_max_inst_no,
                config.maxInstNo.ine2ps_max_inst_no, config.maxInstNo.ine4ps_max_inst_no, config.last_tick_channel);
    board.WriteRegister(reg::REPEAT_QUOTE_UPLOAD, config.repeat_quote_upload ? 1 : 0);
    board.WriteRegister(reg::MODEL_SEL, config.model_sel ? 1 : 0);
    board.WriteRegister(reg::EVENT_MODEL_SEL, config.event_model_sel ? 1 : 0);
}

void StartEngines(const CDrvRegEnyx& board, int32_t channel) {
    VEXA_LOG_AS("_StartDmaUp", LOG_INFO, "channel%d close read/write channle", channel);
    for (const EMDQPDataType feed : {SHFE_4PS, SHFE_2PS, INE_2PS, INE_4PS}) {
        board_table::Close(board, TraitsOf(feed).registers.table);
    }
    VEXA_LOG_AS("_StartDmaUp", LOG_INFO, "channel%d logical start", channel);
    board.WriteRegister(reg::LOGICAL_START_2PS, 1);
    board.WriteRegister(reg::LOGICAL_START_4PS, 1);
}
