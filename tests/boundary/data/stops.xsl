<?xml version="1.0"?>
<!-- Stops the transformation with a message: the processor's error path. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:template match="/">
    <xsl:message terminate="yes">the items can't be listed</xsl:message>
  </xsl:template>
</xsl:stylesheet>
