#pragma once

// Tracks that name buses and groups. Who goes by the maps of timeplates finds a signal there
// by its own id only, and has them taken apart first.

// Takes every bus and group in the slots of the database's plates apart into scalars and
// rebuilds the plates' maps, in memory. False with a post when some stay, because they stand
// on so many tracks that the database is damaged.
[[nodiscard]] bool expandTimePlates(int database);
