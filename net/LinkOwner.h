#pragma once

#include <cstddef>

#include "net/LinkFailure.h"

class CLink;
class IDealNetData;
class IRateLimit;

/// What a link needs of the run of the layer that it belongs to.
///
/// Threads: every operation from any thread.
class ILinkOwner {
 public:
  virtual ~ILinkOwner() = default;

  /// Receives the link's callbacks.
  virtual IDealNetData& Sink() = 0;

  /// Once true no callback begins any more.
  virtual bool IsStopping() const = 0;

  /// Whether this side listens: its links carry requests.
  virtual bool Listens() const = 0;

  /// The set-up of the link has ended, whatever came of it.
  virtual void NoteSetUp(const CLink& link) = 0;

  /// Whether a link ends as soon as its first bytes cannot begin a packet.
  virtual bool JudgesFirstBytes() const = 0;

  /// Decides how fast links are read; null: as fast as it goes.
  virtual IRateLimit* RateLimit() const = 0;

  /// Bytes arrived on a link.
  virtual void NoteReceived(std::size_t bytes) = 0;

  /// A link has come to its end from outside. Comes before that is delivered.
  virtual void NoteEnd(ELinkFailure why) = 0;

  /// One link less is up.
  virtual void NoteDown() = 0;
};
