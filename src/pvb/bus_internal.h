#pragma once

// How the members of buses come to share tracks; called when buses have been formed.

#include <cstddef>
#include <cstdio>
#include <string>
#include <unordered_map>
#include <vector>

#include "pvb/id.h"

// The buses of a database, in rising id, and which one each of their scalars belongs to;
// a scalar of several buses belongs to the first. Valid while no signal changes.
struct BusTable {
  struct Member {
    std::size_t bus;
    std::size_t position;
  };
  std::vector<std::string> names;
  std::unordered_map<PVBid, Member> members;
};

// False, after a post, when the signals aren't loaded.
bool GenerateSignalTable(int database, BusTable& table);
// Lets the members of each bus share a slot in each timeplate where their waves are the
// same; tells `stream` what was combined and what couldn't be. False, after a post, when
// the timeplates aren't loaded.
bool CombineBusTracks(int database, const BusTable& table, FILE* stream);
