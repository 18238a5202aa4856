// The chat endpoint. Everything that blocks (the token, the progress record, the pack, the
// notes) is done on the store's pool while the request is read; the answer itself then runs as
// a streamed reply on the I/O thread, where the model bridge's coroutines live.
#include "api/chat.h"

#include <algorithm>

#include "answers/events.h"
#include "answers/stage_move.h"
#include "answers/text.h"
#include "answers/turn.h"
#include "api/body.h"
#include "api/handlers.h"
#include "auth/tokens.h"

namespace hintwick {
namespace {

using boost::asio::awaitable;

constexpr std::size_t kMaxGameKey = 128;
constexpr std::size_t kMaxQuestion = 4000;
// Several notes may share a title (one per tier); the answer uses the best few distinct ones.
constexpr int kNotesSearched = 12;

const char* const kBusy =
    "The service is answering as many questions as it can right now. Ask again in a moment.";

// The answer, with a stage move's "memory" event after its words and before "done": the
// program appends each token to its last message, so a notice sent first would take the answer's
// words. Without an answer (the busy reply), just the given events.
class ChatStream final : public StreamBody {
 public:
  ChatStream(std::vector<std::string> events, std::optional<AnswerRequest> request,
             Answerer& answerer, std::unique_ptr<ChatDesk::Slot> slot)
      : events_(std::move(events)),
        request_(std::move(request)),
        answerer_(answerer),
        slot_(std::move(slot)) {}

  awaitable<void> Run(const StreamWrite& write) override {
    if (!request_) {
      co_await WriteHeld(write);
      co_return;
    }
    const std::string done = EventLine(DoneEvent{});
    EventSink send = [&](std::string line) -> awaitable<bool> {
      if (line == done && !co_await WriteHeld(write)) co_return false;
      co_return co_await write(std::move(line));
    };
    // An answer that failed still moved the record; the player is told after the error.
    if (co_await RunAnswer(*request_, answerer_, send, cancel_) == TurnEnd::kFailed)
      co_await WriteHeld(write);
  }

  void Cancel() override { cancel_.Cancel(); }

 private:
  awaitable<bool> WriteHeld(const StreamWrite& write) {
    std::vector<std::string> held = std::exchange(events_, {});
    for (std::string& line : held) {
      if (!co_await write(std::move(line))) co_return false;
    }
    co_return true;
  }

  std::vector<std::string> events_;
  std::optional<AnswerRequest> request_;
  Answerer& answerer_;
  std::unique_ptr<ChatDesk::Slot> slot_;
  Cancellation cancel_;
};

Reply StreamReply(std::shared_ptr<StreamBody> body) {
  Reply reply;
  reply.content_type = "text/event-stream; charset=utf-8";
  reply.stream = std::move(body);
  return reply;
}

struct Question {
  std::string game;
  std::string message;
};

std::variant<Question, Reply> ReadQuestion(const Request& request, Services& services) {
  auto body = ParseObject(request.body, services.config.json_depth);
  if (!body) return ErrorReply(400, "the body must be a JSON object");
  auto game = StringMember(*body, "game");
  auto message = StringMember(*body, "message");
  if (!game || !message) return ErrorReply(400, "game and message are required");
  if (game->empty() || game->size() > kMaxGameKey)
    return ErrorReply(400, "the game key must be 1 to 128 bytes");
  if (message->size() > kMaxQuestion) return ErrorReply(400, "the question is too long");
  return Question{std::move(*game), std::move(*message)};
}

GameOutline OutlineOf(const PackOutline& pack) {
  GameOutline outline{pack.title, {}, {}};
  for (std::size_t i = 0; i < pack.stages.size(); ++i)
    outline.stages.push_back(
        {pack.stages[i].name, static_cast<std::int64_t>(i + 1), pack.stages[i].aliases});
  for (const PackSpoiler& spoiler : pack.spoilers)
    outline.spoiler_terms.push_back({spoiler.term, spoiler.stage});
  return outline;
}

PlayerPosition PositionOf(const Progress& progress) {
  return {progress.stage, progress.stage_ordinal, progress.directness, progress.spoilers_ok};
}

// What the answer starts from once the store has been read.
struct Prepared {
  std::vector<std::string> stage_moved;  // the "memory" event of a stage move
  AnswerRequest request;
};

// A stage the question names moves the record first, so that the answer is gated at the stage
// the player says they reached.
std::optional<Reply> MoveStage(Services& services, UserId user, const Question& question,
                               AnswerRequest& request, std::vector<std::string>& stage_moved) {
  auto move = StageMoveFromQuestion(question.message, request.outline, request.position);
  if (!move) return std::nullopt;
  ProgressPatch patch;
  patch.stage = move->stage;
  patch.stage_ordinal = move->ordinal;
  auto patched = services.store.PatchProgress(user, question.game, patch);
  const Progress* progress = Accounts::Succeeded(patched);
  if (!progress) return RefusalFor(AuthFailure::kUnavailable);
  request.position = PositionOf(*progress);
  stage_moved.push_back(EventLine(MemoryEventFor(*move)));
  return std::nullopt;
}

// The answer takes one note per title, so of the notes on one subject the most direct the
// player allows goes first, where that subject ranked: a question asked again then gets the
// next tier rather than the same nudge.
void MostDirectFirst(std::vector<GatedNote>& notes) {
  std::vector<std::string> titles;
  for (const GatedNote& note : notes)
    if (std::find(titles.begin(), titles.end(), note.title) == titles.end())
      titles.push_back(note.title);
  auto rank = [&](const GatedNote& note) {
    return std::find(titles.begin(), titles.end(), note.title) - titles.begin();
  };
  std::stable_sort(notes.begin(), notes.end(), [&](const GatedNote& a, const GatedNote& b) {
    if (rank(a) != rank(b)) return rank(a) < rank(b);
    return a.tier > b.tier;
  });
}

// The store keeps a digest of the normalised question: it fits an index at any length, and no
// player's words are kept.
std::optional<Reply> AllowTier(Services& services, UserId user, const Question& question,
                               AnswerRequest& request) {
  auto counted = services.store.CountQuestion(
      user, question.game, Sha256Hex(NormalizedQuestion(question.message)), Clock::now());
  const int* asked_before = Accounts::Succeeded(counted);
  if (!asked_before) return RefusalFor(AuthFailure::kUnavailable);
  request.max_tier = AllowedTier(request.position.directness, *asked_before);
  return std::nullopt;
}

std::optional<Reply> FindNotes(Services& services, const Question& question,
                               AnswerRequest& request) {
  const PlayerPosition& position = request.position;
  std::optional<std::int64_t> max_stage;
  if (!position.spoilers_ok) max_stage = position.stage_ordinal;
  auto found = services.store.SearchNotes(question.game, question.message, max_stage,
                                          static_cast<Tier>(request.max_tier), kNotesSearched);
  const auto* notes = Accounts::Succeeded(found);
  if (!notes) return RefusalFor(AuthFailure::kUnavailable);
  for (const PackNote& note : *notes)
    request.notes.push_back({note.title, note.body, static_cast<int>(note.tier), note.stage});
  MostDirectFirst(request.notes);
  return std::nullopt;
}

std::variant<Prepared, Reply> Prepare(Services& services, UserId user, const Question& question) {
  auto read = services.store.GetProgress(user, question.game);
  const Progress* progress = Accounts::Succeeded(read);
  auto looked_up = services.store.GetPackOutline(question.game);
  const auto* pack = Accounts::Succeeded(looked_up);
  if (!progress || !pack) return RefusalFor(AuthFailure::kUnavailable);
  Prepared prepared;
  AnswerRequest& request = prepared.request;
  request.question = question.message;
  request.position = PositionOf(*progress);
  request.has_pack = pack->has_value();
  if (request.has_pack) {
    request.outline = OutlineOf(**pack);
    if (auto refusal = MoveStage(services, user, question, request, prepared.stage_moved))
      return std::move(*refusal);
  }
  if (auto refusal = AllowTier(services, user, question, request)) return std::move(*refusal);
  // A player who has not started is at the first stage: its notes are safe from the start.
  PlayerPosition& position = request.position;
  position.stage_ordinal = std::max<std::int64_t>(1, position.stage_ordinal);
  if (position.stage.empty() && !request.outline.stages.empty())
    position.stage = request.outline.stages.front().name;
  if (request.has_pack) {
    if (auto refusal = FindNotes(services, question, request)) return std::move(*refusal);
  }
  return prepared;
}

}  // namespace

ChatDesk::ChatDesk(const Config& config)
    : limit_(config.answer_concurrency),
      answerer_(config.model_url.empty()
                    ? std::unique_ptr<Answerer>(std::make_unique<BuiltinAnswerer>())
                    : std::make_unique<ModelAnswerer>(ModelEndpoint{
                          config.model_url, config.model_name, config.model_key, {}})) {}

std::unique_ptr<ChatDesk::Slot> ChatDesk::TakeSlot() {
  if (open_.fetch_add(1) >= limit_) {
    --open_;
    return nullptr;
  }
  return std::make_unique<Slot>(*this);
}

Reply Chat(const Request& request, Services& services) {
  auto caller = Caller(request, services);
  if (auto* refusal = std::get_if<Reply>(&caller)) return std::move(*refusal);
  auto question = ReadQuestion(request, services);
  if (auto* refusal = std::get_if<Reply>(&question)) return std::move(*refusal);
  Answerer& answerer = services.chat.answerer();
  auto slot = services.chat.TakeSlot();
  // The program shows an event's words; a bare 503 would read as "something went wrong".
  if (!slot) {
    return StreamReply(std::make_shared<ChatStream>(
        std::vector<std::string>{EventLine(ErrorEvent{kBusy, std::nullopt})}, std::nullopt,
        answerer, nullptr));
  }
  auto prepared = Prepare(services, std::get<UserId>(caller), std::get<Question>(question));
  if (auto* refusal = std::get_if<Reply>(&prepared)) return std::move(*refusal);
  Prepared& ready = std::get<Prepared>(prepared);
  return StreamReply(std::make_shared<ChatStream>(
      std::move(ready.stage_moved), std::move(ready.request), answerer, std::move(slot)));
}

}  // namespace hintwick
