"""What scripts/compare is made of: runs two builds of the toolkit and compares all that they do."""
