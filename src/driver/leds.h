#pragma once
// The two front-panel LEDs that flicker on serial traffic. A gateway without the LED files shows nothing and misses
// nothing.

/// A flash of the transmit LED, "/proc/leds/kr_red".
void led_tx_pulse();
/// A flash of the receive LED, "/proc/leds/lan".
void led_rx_pulse();

void set_led_tx(bool state);
void set_led_rx(bool state);

/// Both LEDs off, as the process starts.
void leds_off();
