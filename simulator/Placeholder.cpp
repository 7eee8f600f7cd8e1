// The simulated pens come here.
