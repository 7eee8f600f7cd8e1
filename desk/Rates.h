// How fast this machine's pens have been, from the events of earlier runs, for saying how long an install will take.
#ifndef QUARVEL_DESK_RATES_H
#define QUARVEL_DESK_RATES_H

#include <cstdint>
#include <istream>
#include <optional>

// Used by one thread.
class Rates {
 public:
  // Takes one run's events into account, of which 4 MiB are read.
  void AddEvents(std::istream& events);

  int Transfers() const { return m_transfers; }
  // Seconds that an install of so many bytes takes; none before the first measured transfer.
  std::optional<uint64_t> SecondsFor(uint64_t bytes, bool firmware) const;

 private:
  int m_transfers = 0;
  double m_bytes = 0;
  double m_seconds = 0;
  int m_downloads = 0;
  double m_waited = 0;  // for pens to leave and come back
};

#endif
