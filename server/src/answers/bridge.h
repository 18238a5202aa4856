#pragma once
// The bridge to an OpenAI-compatible model server: one streamed chat completion over plain
// HTTP, read as it arrives.
#include <string>

#include "answers/answerer.h"
#include "answers/model_protocol.h"

namespace hintwick {

// Sends `body` and hands every piece of content to `sink` as its line completes. Time-outs,
// refusals and errors in the stream end in kFailed with words for the player; Cancel() closes
// the connection to the model server at once.
boost::asio::awaitable<AnswerResult> StreamCompletion(const ModelEndpoint& endpoint,
                                                      std::string body, const PieceSink& sink,
                                                      Cancellation& cancel);

}  // namespace hintwick
