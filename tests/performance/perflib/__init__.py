"""What script/performance measures, and how it reports it."""
