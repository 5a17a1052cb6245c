#!/usr/bin/env python3
"""A host application in Python: reports one event of each kind, tells the figures, stops.

host.py [BUNDLE]    BUNDLE is the folder that holds VTMod.bundle/settings.json

For each call it prints a line: the answer, a tab, the call.
"""

import sys

import vantamo


def fire(name, **members):
    answer = getattr(vantamo, "fire_" + name)(**members)
    shown = ", ".join(f"{member}={value!r}" for member, value in members.items())
    print(f"{str(answer).lower()}\tfire_{name}({shown})")


def fire_all():
    fire("page_view", pageId="home", category="start")
    fire("page_view", pageId="results", category="search", searchTerm="shoe", searchResult="12",
         attributes=["spring", "web"], vqmmc=["mail", "week 12", "banner"])
    fire("product_view", pageId="product", productId="sku-1", productName="Shoe", category="shoes")
    fire("element", elementId="size-chart", elementCategory="help")
    fire("shop_action5", productId="sku-1", productName="Shoe", quantity="2",
         baseUnitPrice="19.90", category="shoes", currencyCode="EUR", attributes=["red", "42"])
    fire("registration", customerId="c-7", email="ada@example.org", customerCity="Zürich",
         customerCountry="CH")
    fire("shop_action9", productId="sku-1", productName="Shoe", quantity="2",
         baseUnitPrice="19.90", orderId="o-1", orderSubTotal="39.80", customerId="c-7",
         currencyCode="EUR")
    fire("order", orderId="o-1", subtotal="39.80", shippingCharge="4.90", customerId="c-7",
         currencyCode="EUR")
    fire("conversion_event", eventId="newsletter", actionType="2", eventPoints="10")
    fire("link_click", pageId="home", linkName="imprint", link="/imprint")
    fire("impression", pageId="home", vqsp=["spring", "hero"], vqre=["top"])


def tell(report):
    if report.outcome != vantamo.DELIVERED:
        print(f"{report.id} is not delivered: {report.reason}", file=sys.stderr)


def main():
    bundle = sys.argv[1] if len(sys.argv) > 1 else None
    vantamo.set_platform_overrides(mainBundleFolder=bundle, screenSize=(390, 844))
    vantamo.set_options(maxQueuedMessages=500)  # before the first startup
    vantamo.set_delivery_callback(tell)
    if not vantamo.startup():
        sys.exit("the library did not start; set VANTAMO_DEBUG=1 to see why")
    fire_all()
    delivered = vantamo.flush(5)
    figures = vantamo.stats()
    print(f"accepted {figures.accepted}, delivered {figures.delivered}, "
          f"last error: {figures.lastError}", file=sys.stderr)
    vantamo.shutdown()
    return 0 if delivered else 3


if __name__ == "__main__":
    sys.exit(main())
