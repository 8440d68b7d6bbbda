// SPDX-License-Identifier: MIT
// What the wait loop serves besides requests. Main thread. Neither function waits.
#pragma once

#include "rxe.h"

namespace requests {

// Whether frames of the message whose frame was received last are still to come.
bool hasMoreFrames(void* socket);

// Takes one message of the radio side from main_from_radio_async, which must be
// ready. A message is a topic and a payload, one frame each.
void handleRadioNews();

// Arms the database timer for the next reset and warns; nothing when it is armed.
// `filling` is how full the engine's tag database is.
void scheduleDatabaseReset(const DB_WARNING_s& filling);

// Serves the expired database timer.
void handleDatabaseTimer();

}  // namespace requests
