// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// metrics: figures for monitoring.

#include "commands.h"
#include "service.h"

namespace asdctl {

namespace {

struct MetricsOptions {};

int run_metrics(const Context &context, const MetricsOptions & /*options*/) {
    const std::string text = Service(context).metrics();
    return answer(context, Json(text), text);
}

} // namespace

void add_metrics_command(CLI::App &app, Command &chosen) {
    (void)add_command(app, chosen, "metrics", "Figures for monitoring, as OpenMetrics text", "metrics", run_metrics);
}

} // namespace asdctl
