// What other waits of the platform need to end when the process is told to stop.
#pragma once

// Readable from the first stop signal on; -1 before qv_catch_stop_signals() and when the system had none left.
int qv_stop_event_descriptor();
