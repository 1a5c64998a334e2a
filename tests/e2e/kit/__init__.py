"""What the end-to-end tests and the demo stand on: a session of their own, cards, and the program's window."""
