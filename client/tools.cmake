# The programs for people who run a wall.
