"""Parts of make-streams: recipes of the demo streams, SI tables, packet-level checks."""
