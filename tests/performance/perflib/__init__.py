"""What script/bench measures, and how it reports it."""
