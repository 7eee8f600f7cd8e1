#include "desk/PenList.h"
#include "host/Commands.h"
#include "host/RunSummary.h"
#include "host/Session.h"

ExitStatus RemoveCommand(const Options& options) {
  return Session::Serve(options, "remove", [&](Session& session) {
    std::vector<Pen> pens = SelectPens(options.pens, options.all);
    return Combined(session.RunOnPens(pens, RemovalJob(options.choice.group)), false);
  });
}
