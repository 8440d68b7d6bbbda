// SPDX-License-Identifier: MIT
// What the peers of the two doors of the daemon, tcp port 5160 and the reply socket, may
// take from it. The library that serves them bounds neither their number nor what they
// subscribe to, and without a descriptor for a new peer it ends the process.
//
//   descriptor        0 ........... subscribers | clients | overlap | the daemon's own
//   a subscriber      is admitted below this mark, else its connection is closed
//   a client          is admitted below the third one; when all places of clients are
//                     taken, one of theirs is closed for it
//
// A descriptor's number is the lowest that is free, so it tells how many are open.
#pragma once

// Lets the process have as many descriptors as the system allows it. Main thread, first
// of all.
void raiseDescriptorLimit();

// Tells what was refused since the last time, in one warning for each kind and not more
// often than once a minute. Any one thread, at each tick.
void tellRefusedPeers();

// The publisher has taken in what its subscribers had sent; what they may send before the
// next time counts from 0 again. Any thread.
void subscriptionsTaken();
