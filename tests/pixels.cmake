# pixels
